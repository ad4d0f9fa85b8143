#include "base/richtext/HtmlSource.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "base/text/NamedCharset.h"
#include "base/text/Utf16.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr std::size_t kMostAttributes = 500;  // of one tag
constexpr std::size_t kLongestName = 100;     // in bytes; the parser takes what follows for another name

constexpr bool isNameByte(char c) {
    return isAsciiAlphanumeric(c) || c == ':' || c == '-' || c == '_' || c == '.';
}
constexpr bool isTagWhite(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

void takeValue(Cursor& in) {
    const char quote = in.peek();
    if (quote != '"' && quote != '\'') {
        in.takeUntil([](char c) { return c == '>' || isTagWhite(c); });
        return;
    }
    in.advance();
    in.takeUntil(quote);
    in.advance();
}

/// One attribute as the parser cuts it, or what it skips in its place.
void takeAttribute(Cursor& in) {
    const auto name = in.takeWhile(isNameByte, kLongestName);
    if (name.empty()) {
        in.takeUntil([](char c) { return c == '>' || isTagWhite(c); });
        return;
    }
    in.takeWhile(isTagWhite);
    if (!in.skip('=')) return;
    in.takeWhile(isTagWhite);
    takeValue(in);
}

/// Walks over the tags of a page and copies it without the attributes that are too many.
class AttributeLimit {
public:
    explicit AttributeLimit(std::string_view html) : _in(html) {}

    /// Nullopt when nothing had to go.
    std::optional<std::string> run() {
        while (!_in.atEnd()) {
            _in.takeUntil('<');
            if (_in.skip("<!--")) {
                _in.takeUntil("-->");
            } else {
                _in.advance();
                if (isAsciiLetter(_in.peek())) readTag();
            }
        }
        if (_copied == 0) return std::nullopt;
        _kept += _in.takenSince(_copied);
        return std::move(_kept);
    }

private:
    void readTag() {
        const auto name = _in.takeWhile(isNameByte, kLongestName);
        _in.takeWhile(isTagWhite);
        std::size_t count = 0, end = 0;
        while (!_in.atEnd() && _in.peek() != '>') {
            if (count++ == kMostAttributes) end = _in.position();
            takeAttribute(_in);
            _in.takeWhile(isTagWhite);
        }
        if (end != 0) leaveOutSince(end);
        for (const auto* const raw : {"script", "style"})
            if (equalIgnoringAsciiCase(name, raw)) _in.takeUntil("</");
    }

    void leaveOutSince(std::size_t start) {
        const auto here = _in;
        _in.moveTo(start);
        _kept += _in.takenSince(_copied);
        _in = here;
        _copied = here.position();
    }

    Cursor _in;
    std::string _kept;
    std::size_t _copied = 0;  // up to where, or passed over; 0 as long as nothing had to go
};

/// What stands behind a byte order mark and the charset it means.
std::optional<std::pair<std::string_view, std::string_view>> byteOrderMark(std::string_view bytes) {
    using namespace std::string_view_literals;
    if (bytes.starts_with("\xEF\xBB\xBF"sv)) return std::pair(bytes.substr(3), "utf-8"sv);
    if (bytes.starts_with("\xFE\xFF"sv)) return std::pair(bytes, "utf-16"sv);
    if (bytes.starts_with("\xFF\xFE"sv)) return std::pair(bytes, "utf-16"sv);
    return std::nullopt;
}

std::string decodePage(std::string_view bytes, std::optional<std::string_view> charset) {
    if (const auto marked = byteOrderMark(bytes))
        return decodeNamedCharset(marked->first, marked->second).value_or(std::string());
    auto text = charset ? decodeNamedCharset(bytes, *charset) : std::nullopt;
    if (text) return *std::move(text);
    auto named = charsetInMeta(bytes);
    // A page whose meta element could be read byte by byte is not in UTF-16, whatever it says.
    if (asciiLowered(named.substr(0, 6)) == "utf-16") named = "utf-8";
    text = named.empty() ? std::nullopt : decodeNamedCharset(bytes, named);
    return text ? *std::move(text) : decodeUnlabelled(bytes, StringEncoding::unknown);
}

void replaceZeros(std::string& text) {
    auto zero = text.find('\0');
    if (zero == std::string::npos) return;
    std::string clean;
    std::size_t copied = 0;
    for (; zero != std::string::npos; zero = text.find('\0', copied)) {
        clean.append(text, copied, zero - copied).append("\uFFFD");
        copied = zero + 1;
    }
    text = clean.append(text, copied);
}

}  // namespace

std::string_view charsetInMeta(std::string_view html) {
    constexpr std::size_t kHead = 4096;
    Cursor in(html.substr(0, kHead));
    while (!in.atEnd()) {
        in.takeUntil('<');
        if (!in.skipIgnoringCase("<meta")) {
            in.advance();
            continue;
        }
        Cursor tag(in.takeUntil('>'));
        while (!tag.atEnd()) {
            if (!tag.skipIgnoringCase("charset")) {
                tag.advance();
                continue;
            }
            tag.takeWhile(isTagWhite);
            if (!tag.skip('=')) continue;
            tag.takeWhile([](char c) { return isTagWhite(c) || c == '"' || c == '\''; });
            return tag.takeWhile([](char c) { return isNameByte(c) || c == '+'; });
        }
    }
    return {};
}

std::string textOfHtml(const Data& html, std::optional<std::string_view> charset) {
    auto text = decodePage(html.view(), charset);
    replaceZeros(text);
    if (auto limited = AttributeLimit(text).run()) text = *std::move(limited);
    return text.insert(0, "<html><body>");
}

}  // namespace lorvale
