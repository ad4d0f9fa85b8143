#include "mail/model/HeaderDecoding.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/text/Ascii.h"
#include "lorvale/mime.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

/// How repeated lines of one header are treated.  With neither flag the first line counts and the others are
/// dropped, as for every header that is not in the table.
struct HeaderClass {
    std::string_view key;
    bool accumulates;  ///< each line adds a value
    bool replaces;     ///< each line throws the values before it away
};
constexpr auto kHeaderClasses = std::to_array<HeaderClass>({
    {"to", true, false},
    {"subject", false, false},
    {"cc", true, false},
    {"reply-to", false, false},
    {"date", false, false},
    {"from", false, true},
    {"tarn-reference", false, false},
    {"received", true, false},
});

constexpr HeaderClass kOtherHeader{"", false, false};

const HeaderClass& headerClass(std::string_view key) {
    const auto* const found = std::ranges::find(kHeaderClasses, key, &HeaderClass::key);
    return found == kHeaderClasses.end() ? kOtherHeader : *found;
}

constexpr std::string_view kEnvelopeMark = "From ";
// A carriage return is none of it: lines end with a newline alone, and what stands before it is the value.
constexpr std::string_view kWhite = " \t\n";

std::string_view withoutLeadingWhite(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kWhite), text.size()));
    return text;
}

std::string textOfBytes(std::string_view bytes) {
    return isAscii(bytes) ? std::string(bytes) : decodeCString(bytes);
}

std::string decodedValue(std::string_view bytes) {
    // ASCII stands for itself in every encoding that can be the default one.
    return isAscii(bytes) ? decodeMimeHeaderValue(bytes) : decodeMimeHeaderValue(decodeCString(bytes));
}

/// Hands out the lines of a header block with folded ones joined: the newline and one blank or tab behind it
/// go.
class LogicalLines {
public:
    explicit LogicalLines(std::string_view block) : _rest(block) {}

    /// The next line without its newline, good until the next call; nullopt at an empty line or the end.
    std::optional<std::string_view> next() {
        _joined.clear();
        bool folded = false;
        for (;;) {
            const auto newline = _rest.find('\n');
            const bool ended = newline == std::string_view::npos;
            const auto piece = _rest.substr(0, newline);
            _rest.remove_prefix(ended ? _rest.size() : newline + 1);
            if (!_rest.empty() && isAsciiBlank(_rest.front())) {
                _joined += piece;
                folded = true;
                _rest.remove_prefix(1);
                continue;
            }
            if (folded) _joined += piece;
            const auto line = folded ? std::string_view(_joined) : piece;
            // Less than two bytes, the newline counted, are no header line any more.
            if (line.size() + (ended ? 0 : 1) < 2) return std::nullopt;
            return line;
        }
    }

private:
    std::string_view _rest;
    std::string _joined;  // of a folded line; all others are slices of the block
};

struct Field {
    std::string_view name, value;
};

std::optional<Field> fieldInLine(std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    return Field{withoutLeadingWhite(line.substr(0, colon)), line.substr(colon + 1)};
}

/// The headers to decode, in lower case; none: all.
using Wanted = std::span<const std::string_view>;

class HeaderBlockDecoder {
public:
    HeaderBlockDecoder(HeaderDictionary& headers, HeaderOrder& order, OriginalKeys& originalKeys,
                       Wanted wanted = {})
        : _headers(headers), _order(order), _originalKeys(originalKeys), _wanted(wanted) {}

    void decode(std::string_view block) {
        LogicalLines lines(block);
        bool first = true;
        while (const auto line = lines.next()) {
            if (isAsciiBlank(line->front())) {
                if (_open != nullptr) appendToLastValue(*line);
            } else if (first && line->starts_with(kEnvelopeMark)) {
                addField({kEnvelopeMark, line->substr(kEnvelopeMark.size())});
            } else if (const auto field = fieldInLine(*line)) {
                addField(*field);
            }
            first = false;
        }
    }

private:
    void addField(const Field& field) {
        _open = nullptr;
        if (!_wanted.empty() && !isWanted(field.name)) return;
        setKey(field.name);
        const auto& row = headerClass(_key);
        if (row.accumulates || row.replaces) {
            addToValues(field, row);
        } else {
            addFirst(field);
        }
    }

    void addFirst(const Field& field) {
        const auto place = _headers.lower_bound(_key);
        if (place != _headers.end() && place->first == _key) return;
        _headers.try_emplace(place, _key)->second.push_back(decodedValue(withoutLeadingWhite(field.value)));
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
        if (!value.empty()) _open->push_back(decodedValue(value));
        _order.push_back(_key);
    }

    /// An indented line that no line end precedes: the first of a block, or one behind an empty line.
    void appendToLastValue(std::string_view line) {
        const auto value = trimmed(line, kWhite);
        if (value.empty() || _open->empty()) return;
        auto& last = _open->back();
        last += '\n';
        last += line.front();
        last += decodedValue(value);
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
        return std::ranges::any_of(_wanted,
                                   [name](std::string_view key) { return equalIgnoringAsciiCase(name, key); });
    }

    HeaderDictionary& _headers;
    HeaderOrder& _order;
    OriginalKeys& _originalKeys;
    const Wanted _wanted;
    std::string _key;                           // of the line at hand, in lower case
    std::vector<std::string>* _open = nullptr;  // values of the header before, if it can be repeated
};

}  // namespace

void decodeHeaderBlock(std::string_view bytes, HeaderDictionary& headers, HeaderOrder& order,
                       OriginalKeys& originalKeys) {
    HeaderBlockDecoder(headers, order, originalKeys).decode(bytes);
}

std::vector<std::optional<std::string>> firstValuesInBlock(std::string_view bytes,
                                                           std::span<const std::string_view> keys) {
    HeaderDictionary headers;
    HeaderOrder order;
    OriginalKeys originalKeys;
    HeaderBlockDecoder(headers, order, originalKeys, keys).decode(bytes);
    std::vector<std::optional<std::string>> values;
    for (const auto key : keys) {
        const auto found = headers.find(key);
        const bool has = found != headers.end() && !found->second.empty();
        values.push_back(has ? std::optional(found->second.front()) : std::nullopt);
    }
    return values;
}

CachedHeaders cachedHeadersInBlock(std::string_view bytes) {
    HeaderDictionary headers;
    HeaderOrder order;
    OriginalKeys originalKeys;
    HeaderBlockDecoder(headers, order, originalKeys, MessageHeaders::cachedKeys()).decode(bytes);
    CachedHeaders cached;
    for (const auto key : MessageHeaders::cachedKeys()) {
        const auto found = headers.find(key);
        if (found == headers.end() || found->second.empty()) continue;
        cached.set(originalKeys.find(key)->second, std::move(found->second.front()));
    }
    return cached;
}

std::optional<std::string> envelopeInBlock(std::string_view bytes) {
    LogicalLines lines(bytes);
    const auto line = lines.next();
    if (!line || !line->starts_with(kEnvelopeMark)) return std::nullopt;
    return decodedValue(withoutLeadingWhite(line->substr(kEnvelopeMark.size())));
}

}  // namespace lorvale
