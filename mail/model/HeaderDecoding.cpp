#include "mail/model/HeaderDecoding.h"

#include <algorithm>
#include <utility>

#include "base/text/Ascii.h"
#include "lorvale/mime.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"
#include "mail/encoding/MimeHeaderEncoding.h"
#include "mail/model/Envelope.h"
#include "mail/model/HeaderClasses.h"
#include "mail/model/HeaderLines.h"

namespace lorvale {

namespace {

// A carriage return is none of it: in the classic dialect what stands before the newline is the value.
constexpr std::string_view kWhite = " \t\n";

std::string_view withoutLeadingWhite(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kWhite), text.size()));
    return text;
}

std::string textOfBytes(std::string_view bytes) {
    return isAscii(bytes) ? std::string(bytes) : decodeCString(bytes);
}

struct Field {
    std::string_view name, value;
};

/// The line is folded still.
std::optional<Field> fieldInLine(std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    return Field{line.substr(0, colon), line.substr(colon + 1)};
}

/// Printable ASCII, as RFC 5322, section 2.2, has it.  Others are lines that got into a header by mistake.
bool isStandardName(std::string_view name) {
    return !name.empty() && std::ranges::all_of(name, [](char c) { return c > ' ' && c < 0x7F; });
}

class HeaderBlockDecoder {
public:
    /// `wanted` are the only headers that are read, in lower case; all of them when it is empty.
    HeaderBlockDecoder(HeaderDictionary& headers, HeaderOrder& order, OriginalKeys& originalKeys,
                       MailDialect dialect, std::span<const std::string_view> wanted = {})
        : _headers(headers), _order(order), _originalKeys(originalKeys), _dialect(dialect), _wanted(wanted) {}

    void decode(std::string_view block) {
        HeaderLines lines(block, _dialect);
        bool first = true;
        while (const auto line = lines.next()) {
            // A fold in front of the colon is rare; all others are undone when the value is wanted.
            const bool isOdd = line->substr(0, line->find(':')).find_first_of("\r\n") != std::string_view::npos;
            takeLine(lines, isOdd ? std::string(lines.unfolded(*line)) : *line, first);
            first = false;
        }
    }

private:
    void takeLine(HeaderLines& lines, std::string_view line, bool first) {
        if (isAsciiBlank(line.front())) {
            if (_open != nullptr) appendToLastValue(lines.unfolded(line));
        } else if (first && line.starts_with(kEnvelopeMark)) {
            addField(lines, {kEnvelopeMark, line.substr(kEnvelopeMark.size())});
        } else if (auto field = fieldInLine(line)) {
            if (standardises()) {
                field->name = trimmed(field->name, kWhite);  // RFC 5322, section 4.5
                if (!isStandardName(field->name)) return;
            } else {
                field->name = withoutLeadingWhite(field->name);
            }
            addField(lines, *field);
        }
    }

    bool standardises() const { return _dialect == MailDialect::standard; }

    void addField(HeaderLines& lines, const Field& field) {
        _open = nullptr;
        if (!isWanted(field.name)) return;
        setKey(field.name);
        const auto& row = headerClass(_key);
        const auto value = lines.unfolded(field.value);
        if (row.accumulates || row.replaces) {
            addToValues({field.name, value}, row);
        } else {
            addFirst({field.name, value}, row);
        }
    }

    void addFirst(const Field& field, const HeaderClass& row) {
        const auto place = _headers.lower_bound(_key);
        if (place != _headers.end() && place->first == _key) return;
        const auto value = standardises() ? trimmed(field.value, kWhite) : withoutLeadingWhite(field.value);
        _headers.try_emplace(place, _key)->second.push_back(decoded(value, row.syntax));
        _order.push_back(_key);
        _originalKeys.insert_or_assign(_key, textOfBytes(field.name));
    }

    void addToValues(const Field& field, const HeaderClass& row) {
        const auto [place, isNew] = _headers.try_emplace(_key);
        if (isNew || row.replaces) {
            place->second.clear();
            _originalKeys.insert_or_assign(_key, textOfBytes(field.name));
        }
        _open = &place->second;
        const auto value = trimmed(field.value, kWhite);
        if (!value.empty()) _open->push_back(decoded(value, row.syntax));
        _order.push_back(_key);
    }

    /// An indented line that no line end precedes: the first of a block, or one behind an empty line.
    void appendToLastValue(std::string_view line) {
        const auto value = trimmed(line, kWhite);
        if (value.empty() || _open->empty()) return;
        auto& last = _open->back();
        last += '\n';
        last += line.front();
        last += decoded(value, HeaderSyntax::text);
    }

    std::string decoded(std::string_view value, HeaderSyntax syntax) const {
        if (standardises()) return decodeStandardValue(value, syntax);
        // ASCII stands for itself in every encoding that can be the default one.
        return decodeMimeHeaderValue(isAscii(value) ? std::string(value) : decodeCString(value),
                                     MailDialect::classic);
    }

    static std::string decodeStandardValue(std::string_view value, HeaderSyntax syntax) {
        switch (syntax) {
            case HeaderSyntax::addresses:
                return decodeAddressHeader(value);
            case HeaderSyntax::structured:
                return decodeStructuredHeader(value);
            case HeaderSyntax::text:
                break;
        }
        return decodeMimeHeaderValue(value, MailDialect::standard);
    }

    void setKey(std::string_view name) {
        if (!isAscii(name)) {
            _key = lowercased(decodeCString(name));
            return;
        }
        _key.resize(name.size());
        std::ranges::transform(name, _key.begin(), asciiLower);
    }

    bool isWanted(std::string_view name) const {
        return _wanted.empty() || std::ranges::any_of(_wanted, [name](std::string_view key) {
                   return equalIgnoringAsciiCase(name, key);
               });
    }

    HeaderDictionary& _headers;
    HeaderOrder& _order;
    OriginalKeys& _originalKeys;
    const MailDialect _dialect;
    const std::span<const std::string_view> _wanted;
    std::string _key;                           // of the line at hand, in lower case
    std::vector<std::string>* _open = nullptr;  // values of the header before, if it can be repeated
};

/// A few headers of a block.
struct SomeHeaders {
    SomeHeaders(std::string_view bytes, std::span<const std::string_view> keys, MailDialect dialect) {
        HeaderOrder order;
        HeaderBlockDecoder(headers, order, originalKeys, dialect, keys).decode(bytes);
    }

    std::string* firstValue(std::string_view key) {
        const auto found = headers.find(key);
        return found == headers.end() || found->second.empty() ? nullptr : &found->second.front();
    }

    HeaderDictionary headers;
    OriginalKeys originalKeys;
};

}  // namespace

void decodeHeaderBlock(std::string_view bytes, HeaderDictionary& headers, HeaderOrder& order,
                       OriginalKeys& originalKeys, MailDialect dialect) {
    HeaderBlockDecoder(headers, order, originalKeys, dialect).decode(bytes);
}

std::vector<std::optional<std::string>> firstValuesInBlock(std::string_view bytes,
                                                           std::span<const std::string_view> keys,
                                                           MailDialect dialect) {
    if (keys.empty()) return {};
    SomeHeaders some(bytes, keys, dialect);
    std::vector<std::optional<std::string>> values;
    for (const auto key : keys) {
        const auto* const value = some.firstValue(key);
        values.push_back(value != nullptr ? std::optional(*value) : std::nullopt);
    }
    return values;
}

CachedHeaders cachedHeadersInBlock(std::string_view bytes, MailDialect dialect) {
    SomeHeaders some(bytes, MessageHeaders::cachedKeys(), dialect);
    CachedHeaders cached;
    for (const auto key : MessageHeaders::cachedKeys()) {
        auto* const value = some.firstValue(key);
        if (value != nullptr) cached.set(some.originalKeys.find(key)->second, std::move(*value));
    }
    return cached;
}

std::optional<std::string> envelopeInBlock(std::string_view bytes, MailDialect dialect) {
    HeaderLines lines(bytes, dialect);
    const auto line = lines.next();
    const auto envelope = line ? lines.unfolded(*line) : std::string_view();
    if (!envelope.starts_with(kEnvelopeMark)) return std::nullopt;
    const auto value = envelope.substr(kEnvelopeMark.size());
    if (dialect == MailDialect::standard) return decodeMimeHeaderValue(trimmed(value, kWhite), dialect);
    return decodeMimeHeaderValue(textOfBytes(withoutLeadingWhite(value)), dialect);
}

std::optional<std::size_t> headerEnd(std::string_view message, MailDialect dialect) {
    if (dialect == MailDialect::classic) {
        const auto end = message.find("\n\n");
        return end == std::string_view::npos ? std::nullopt : std::optional(end + 2);
    }
    HeaderLines lines(message, dialect);
    while (lines.next()) continue;
    return lines.endedAtEmptyLine() ? std::optional(lines.position()) : std::nullopt;
}

std::size_t headerLength(std::string_view message, MailDialect dialect) {
    return headerEnd(message, dialect).value_or(message.size());
}

}  // namespace lorvale
