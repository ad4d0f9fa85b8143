#pragma once
#include <cstddef>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace mailhost {

enum class Command { check, list, show, info };
enum class ShowPart { summary, headers, raw, text };

/// What the command line asks for.
struct Options {
    Command command = Command::list;
    std::string path;
    std::size_t number = 0;                ///< show: 1 is the first message
    std::optional<std::string> sortOrder;  ///< list: one of the library's sort orders
    ShowPart part = ShowPart::summary;
    bool unreadOnly = false;
    bool json = false;
    bool verbose = false;
    bool help = false;
    std::vector<std::pair<std::string, std::string>> defaults;  ///< user defaults for this run
    std::optional<std::string> configDirectory, homeDirectory;
};

/// The command line cannot be understood; what() says why.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Throws UsageError.  Options may stand before, between and behind the other words; "--" ends them.
Options parseOptions(std::span<const char* const> arguments);

std::string_view usageText();

}  // namespace mailhost
