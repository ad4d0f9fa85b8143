#include "mail/imap/CommandText.h"

#include <algorithm>

#include "base/text/Ascii.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/imap/MailboxNames.h"

namespace lorvale {

namespace {

/// Longer texts go out as literals: servers limit their lines.
constexpr std::size_t kMostQuoted = 512;

constexpr auto kAtomByte = byteTable([](std::uint8_t c) {
    return c > ' ' && c < 0x7F &&
           std::string_view("(){%*\"\\").find(static_cast<char>(c)) == std::string_view::npos;
});

bool isAtom(std::string_view text) {
    const auto isAtomByte = [](char c) { return kAtomByte[static_cast<std::uint8_t>(c)]; };
    return !text.empty() && std::ranges::all_of(text, isAtomByte) && !equalIgnoringAsciiCase(text, "NIL");
}

bool fitsQuotes(std::string_view text, bool utf8) {
    if (text.size() > kMostQuoted) return false;
    const auto breaksQuotes = [](char c) { return c == '\r' || c == '\n' || c == '\0'; };
    return std::ranges::none_of(text, breaksQuotes) && (isAscii(text) || (utf8 && isValidUtf8(text)));
}

std::string quoted(std::string_view text) {
    std::string written = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') written += '\\';
        written += c;
    }
    return written += '"';
}

std::string classicArgument(const CommandArgument& argument) {
    using Kind = CommandArgument::Kind;
    if (argument.kind == Kind::mailbox) return mailboxNameForName(argument.value);
    // Whoever set a password with quotes of its own meant them to be the protocol's.
    if (argument.kind == Kind::password && !argument.value.starts_with('"')) return '"' + argument.value + '"';
    return argument.value;
}

/// Puts together the pieces of a command in the standard dialect.
class StandardWriter {
public:
    StandardWriter(std::string_view beginning, const CommandManner& manner)
        : _manner(manner), _pieces{std::string(beginning)} {}

    void add(const CommandArgument& argument) {
        using Kind = CommandArgument::Kind;
        _pieces.back() += ' ';
        if (argument.kind == Kind::wire)
            _pieces.back() += argument.value;
        else if (argument.kind == Kind::mailbox && !_manner.utf8)
            addText(modifiedUtf7(argument.value));
        else
            addText(argument.value);
    }
    std::vector<std::string> pieces() {
        _pieces.back() += "\r\n";
        return std::move(_pieces);
    }

private:
    void addText(std::string_view text) {
        if (isAtom(text))
            _pieces.back() += text;
        else if (fitsQuotes(text, _manner.utf8))
            _pieces.back() += quoted(text);
        else
            addLiteral(text);
    }
    void addLiteral(std::string_view text) {
        const bool isFree = text.size() <= _manner.freeLiteral;
        _pieces.back() += formatText(isFree ? "{%d+}\r\n" : "{%d}\r\n", text.size());
        if (!isFree) _pieces.emplace_back();
        _pieces.back() += text;
    }

    const CommandManner& _manner;
    std::vector<std::string> _pieces;
};

}  // namespace

std::string CommandText::whole() const {
    std::string all;
    for (const auto& piece : pieces) all += piece;
    return all;
}

CommandText commandText(std::string_view tag, std::string_view word, std::span<const CommandArgument> arguments,
                        const CommandManner& manner) {
    const auto beginning = formatText("%@ %@", tag, word);
    if (manner.dialect == MailDialect::standard) {
        StandardWriter writer(beginning, manner);
        for (const auto& argument : arguments) writer.add(argument);
        return {writer.pieces()};
    }
    std::string text = beginning;
    for (const auto& argument : arguments) text += ' ' + classicArgument(argument);
    // Servers get a blank behind the word whether or not anything follows.
    if (arguments.empty()) text += ' ';
    return {{encodeCString(text + "\r\n").toString()}};
}

std::string asciiUppered(std::string_view text) {
    std::string upper(text);
    std::ranges::transform(upper, upper.begin(), asciiUpper);
    return upper;
}

std::string mailboxNameForName(std::string_view name) {
    const bool needsQuotes = name.find(' ') != std::string_view::npos && !name.starts_with('"');
    return needsQuotes ? '"' + std::string(name) + '"' : std::string(name);
}

std::string prefixForLiteralStringOfSize(std::size_t size) {
    return formatText("{%d}", size);
}

std::string parenthesizedString(std::span<const std::string> items) {
    std::string list = "(";
    for (const auto& item : items) list += (list.size() > 1 ? " " : "") + item;
    return list += ')';
}

}  // namespace lorvale
