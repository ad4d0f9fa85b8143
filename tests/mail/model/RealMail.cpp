#include "tests/mail/model/RealMail.h"

#include <algorithm>
#include <filesystem>

#include "tests/support/TestSupport.h"

namespace lorvale::testing {

namespace fs = std::filesystem;

namespace {

/// Mailboxes are cut at their separators; a single message is one piece.  Lines end as the file has them, so a
/// file with bare carriage returns is one long line.
void appendBlocks(std::vector<std::string>& blocks, std::string_view bytes) {
    while (!bytes.empty()) {
        auto end = bytes.find("\n\nFrom ");
        end = end == std::string_view::npos ? bytes.size() : end + 2;
        const auto message = bytes.substr(0, end);
        const auto blank = std::min(message.find("\n\n"), message.find("\n\r\n"));
        blocks.emplace_back(message.substr(0, blank == std::string_view::npos ? message.size() : blank + 2));
        bytes.remove_prefix(end);
    }
}

}  // namespace

std::vector<std::string> realHeaderBlocks() {
    std::vector<std::string> blocks;
    const auto folder = sharedData();
    if (!folder) return blocks;
    for (const auto& entry : fs::recursive_directory_iterator(*folder)) {
        if (!entry.is_regular_file()) continue;
        const auto& path = entry.path();
        appendBlocks(blocks, path.extension() == ".xz" ? unpacked(path) : readFile(path));
    }
    return blocks;
}

}  // namespace lorvale::testing
