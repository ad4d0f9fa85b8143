#include <charconv>
#include <cstdint>
#include <iterator>

#include "base/text/Ascii.h"
#include "base/values/PropertyListForms.h"

namespace lorvale {

namespace {

constexpr std::size_t kBytesOfDataLine = 57;  // 76 letters

void appendBase64(std::string& text, std::string_view bytes) {
    constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto byteAt = [&](std::size_t i) {
        return i < bytes.size() ? static_cast<std::uint8_t>(bytes[i]) : 0u;
    };
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto bits = byteAt(i) << 16 | byteAt(i + 1) << 8 | byteAt(i + 2);
        const char letters[] = {kLetters[bits >> 18], kLetters[bits >> 12 & 63],
                                i + 1 < bytes.size() ? kLetters[bits >> 6 & 63] : '=',
                                i + 2 < bytes.size() ? kLetters[bits & 63] : '='};
        text.append(letters, sizeof letters);
    }
}

/// Writes the value of one file.
class Writer {
public:
    /// False when it grows too large or too deep, or is null.
    bool write(const PropertyList& list) {
        _xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
        const bool fits = value(list);
        _xml += "</plist>\n";
        return fits && _xml.size() <= PropertyList::kMostBytes;
    }
    std::string take() { return std::move(_xml); }

private:
    bool value(const PropertyList& list) {
        if (const auto* const truth = list.get<bool>()) line(*truth ? "<true/>" : "<false/>");
        if (const auto* const number = list.get<std::int64_t>()) element("integer", std::to_string(*number));
        if (const auto* const number = list.get<double>()) element("real", real(*number));
        if (const auto* const text = list.get<std::string>()) element("string", *text);
        if (const auto* const bytes = list.get<Data>()) data(bytes->view());
        if (const auto* const date = list.get<Date>()) element("date", date->iso8601());
        if (const auto* const entries = list.get<PropertyList::Array>()) return array(*entries);
        if (const auto* const entries = list.get<PropertyList::Dictionary>()) return dictionary(*entries);
        return true;
    }

    bool array(const PropertyList::Array& entries) {
        if (!open("<array>")) return false;
        for (const auto& entry : entries)
            if (!value(entry)) return false;
        return close("</array>");
    }

    bool dictionary(const PropertyList::Dictionary& entries) {
        if (!open("<dict>")) return false;
        for (const auto& [key, entry] : entries) {
            if (entry.isNull()) continue;
            element("key", key);
            if (!value(entry)) return false;
        }
        return close("</dict>");
    }

    bool open(std::string_view tag) {
        line(tag);
        return ++_levels <= PropertyList::kMostLevels;
    }
    bool close(std::string_view tag) {
        --_levels;
        line(tag);
        return _xml.size() <= PropertyList::kMostBytes;
    }

    void indent() { _xml.append(_levels, '\t'); }
    void line(std::string_view text) {
        indent();
        _xml.append(text).append("\n");
    }

    void element(std::string_view tag, std::string_view text) {
        indent();
        _xml.append("<").append(tag).append(">");
        escaped(withBytesForXml(text));
        _xml.append("</").append(tag).append(">\n");
    }

    /// A carriage return as it stands would be read as a newline.
    void escaped(std::string_view text) {
        static constexpr auto kSpecial =
            byteTable([](std::uint8_t c) { return c == '&' || c == '<' || c == '>' || c == '\r'; });
        std::size_t start = 0;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (!kSpecial[static_cast<std::uint8_t>(text[i])]) continue;
            _xml += text.substr(start, i - start);
            start = i + 1;
            _xml += text[i] == '&' ? "&amp;" : text[i] == '<' ? "&lt;" : text[i] == '>' ? "&gt;" : "&#13;";
        }
        _xml += text.substr(start);
    }

    static std::string real(double number) {
        char buffer[64];
        const auto [end, error] = std::to_chars(std::begin(buffer), std::end(buffer), number);
        return {buffer, end};
    }

    void data(std::string_view bytes) {
        line("<data>");
        for (std::size_t at = 0; at < bytes.size(); at += kBytesOfDataLine) {
            indent();
            appendBase64(_xml, bytes.substr(at, kBytesOfDataLine));
            _xml += '\n';
        }
        line("</data>");
    }

    std::string _xml;
    std::size_t _levels = 0;
};

}  // namespace

std::optional<std::string> xmlFromPropertyList(const PropertyList& value) {
    Writer writer;
    if (value.isNull()) return std::string();
    if (!writer.write(value)) return std::nullopt;
    return writer.take();
}

}  // namespace lorvale
