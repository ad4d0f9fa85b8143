#pragma once
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Parameter.h"

namespace mailhost {

/// The command line cannot be understood; what() says why.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What a parameter came with; `true` for an option that takes nothing.
using Value = std::variant<bool, std::string, std::uint64_t, Period, Setting>;
/// Throws UsageError for a text that the parameter does not take.
Value valueOf(const Parameter& parameter, std::string_view text);

/// A command line, read by the tables of a program.  Options of every command may stand anywhere, those of one
/// command behind its name; "--" ends the options.
class Arguments {
public:
    /// Throws UsageError; what stands before the fault has been read then.  Words may still be missing: see
    /// checkComplete().
    void read(const Program& program, std::span<const char* const> line);

    /// Throws UsageError unless there is a command with all the words that it needs.
    void checkComplete() const;

    const Command* command() const { return _chosen; }
    bool has(const Parameter& parameter) const { return last(parameter) != nullptr; }
    /// The last one given; nullopt when there is none.
    template <class T>
    std::optional<T> value(const Typed<T>& parameter) const {
        const Value* const found = last(parameter);
        return found != nullptr ? std::optional(std::get<T>(*found)) : std::nullopt;
    }
    /// All that were given, in their order.
    template <class T>
    std::vector<T> values(const Typed<T>& parameter) const {
        std::vector<T> all;
        for (const auto& [name, value] : _given) {
            if (name == parameter.name) all.push_back(std::get<T>(value));
        }
        return all;
    }
    /// Of a word that its command cannot do without.
    template <class T>
    T operator[](const Typed<T>& word) const {
        return std::get<T>(*last(word));
    }

private:
    struct Given {
        std::string_view name;  // of a parameter, by which it is known within its command
        Value value;
    };

    const Value* last(const Parameter& parameter) const;
    const Parameter& optionNamed(const Program& program, std::string_view name) const;
    void addOption(const Parameter& option, Value value);
    void addWord(const Program& program, std::string_view text);
    void takeWords();

    const Command* _chosen = nullptr;
    std::vector<std::string_view> _words;  // behind the command's name, while the line is read
    std::vector<Given> _given;
};

}  // namespace mailhost
