#include "mail/model/HeaderEncoding.h"

#include <algorithm>
#include <map>
#include <span>

#include "base/text/Ascii.h"
#include "lorvale/mime.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"
#include "mail/encoding/MimeHeaderEncoding.h"
#include "mail/encoding/WordWriter.h"
#include "mail/model/Envelope.h"
#include "mail/model/HeaderClasses.h"

namespace lorvale {

namespace {

/// Which values each occurrence of a header in the order writes.  Interleaved lines such as `Received:` and
/// `To:` keep their places: each occurrence writes the next of several values.  Two oddities follow, and stay,
/// since a message that is written anew must come out as every version so far has written it:
///   - a single value is written at every occurrence: of two `From:` lines, of which decoding keeps the last,
///     that one comes out twice;
///   - of several values set under one occurrence only the first is written.
class OccurrenceValues {
public:
    explicit OccurrenceValues(const HeaderDictionary& headers) : _headers(headers) {}

    std::span<const std::string> next(std::string_view key) {
        const auto found = _headers.find(key);
        if (found == _headers.end()) return {};
        const auto& values = found->second;
        auto& occurrence = _occurrences[key];
        if (values.size() < 2) {
            // Far above real mail; without a bound a small block of many empty lines and one long one would
            // grow to the square of its size.
            constexpr std::size_t kMostRepeats = 100;
            return ++occurrence <= kMostRepeats ? std::span(values) : std::span<const std::string>();
        }
        if (occurrence == values.size()) return {};
        return std::span(values).subspan(occurrence++, 1);
    }

private:
    const HeaderDictionary& _headers;
    std::map<std::string_view, std::size_t> _occurrences;
};

class HeaderBlockEncoder {
public:
    explicit HeaderBlockEncoder(MailDialect dialect) : _dialect(dialect) {}

    void addEnvelope(std::string_view value) {
        if (_dialect == MailDialect::standard) {
            _block.append(std::string(kEnvelopeMark) + harmlessText(value) + '\n');
        } else {
            append(kEnvelopeMark);
            appendClassic(value);
        }
    }

    void addHeader(std::string_view key, std::string_view name, std::string_view value) {
        if (_dialect == MailDialect::standard) return addStandard(key, name, value);
        append(classicName(name));
        append(": ");
        appendClassic(encodeMimeHeaderValue(value, MailDialect::classic));
    }

    Data finished() {
        _block.append("\n");
        return _block.data();
    }

private:
    /// A name in which nothing ends the line or the name.  One from mail never begins with white space, which
    /// would make it part of the header before.
    static std::string classicName(std::string_view name) {
        name.remove_prefix(std::min(name.find_first_not_of(kAsciiWhite), name.size()));
        std::string harmless(name);
        std::ranges::replace_if(
            harmless, [](char c) { return c == ':' || (isAsciiControl(c) && c != '\t'); }, '-');
        return harmless;
    }

    /// A newline can hide in an encoded word.  Written as it is it would end the header, or the block, and turn
    /// what follows into headers or text of the sender's choice; as a fold it does no harm.
    void appendClassic(std::string_view value) {
        for (;;) {
            const auto newline = value.find('\n');
            appendHarmless(value.substr(0, newline));
            if (newline == std::string_view::npos) break;
            value.remove_prefix(newline + 1);
            append(value.starts_with(' ') || value.starts_with('\t') ? "\n" : "\n ");
        }
        append("\n");
    }

    /// Bytes that one reader or another takes for a line end become blanks.  The carriage return of a CRLF
    /// stays: the message has such line ends.
    void appendHarmless(std::string_view text) {
        const bool hasReturn = text.ends_with('\r');
        if (hasReturn) text.remove_suffix(1);
        std::string harmless(text);
        std::ranges::replace_if(
            harmless, [](char c) { return kLineEnds.find(c) != std::string_view::npos; }, ' ');
        append(harmless);
        if (hasReturn) append("\r");
    }

    void append(std::string_view text) {
        if (isAscii(text)) {
            _block.append(text);
        } else {
            _block.append(encodeCString(text));
        }
    }

    /// RFC 5322, section 2.2: the name is printable ASCII without a colon.
    static std::string standardName(std::string_view name) {
        std::string valid(trimmed(name));
        std::ranges::replace_if(
            valid, [](char c) { return c <= ' ' || c >= 0x7F || c == ':'; }, '-');
        return valid.empty() ? "-" : valid;
    }

    void addStandard(std::string_view key, std::string_view rawName, std::string_view value) {
        const auto name = standardName(rawName);
        // Behind a long name the value has a line of its own.
        constexpr std::size_t kLongName = 40;
        const bool isLong = name.size() > kLongName;
        _block.append(name);
        _block.append(isLong ? ":\n " : ": ");
        const auto column = isLong ? 1 : name.size() + 2;
        switch (headerClass(key).syntax) {
            case HeaderSyntax::text:
                _block.append(encodeTextHeader(value, column));
                break;
            case HeaderSyntax::addresses:
                _block.append(encodeAddressHeader(value, column));
                break;
            case HeaderSyntax::structured:
                _block.append(encodeStructuredHeader(value, column));
                break;
        }
        _block.append("\n");
    }

    static constexpr std::string_view kLineEnds{"\r\0\v\f\x1C\x1D\x1E", 7};
    const MailDialect _dialect;
    ByteBuffer _block;
};

}  // namespace

Data encodeHeaderBlock(const HeaderDictionary& headers, const HeaderOrder& order,
                       const OriginalKeys& originalKeys, EnvelopeLine envelope, MailDialect dialect) {
    HeaderBlockEncoder block(dialect);
    if (envelope == EnvelopeLine::write) {
        const auto found = headers.find(kFromSpaceKey);
        if (found != headers.end() && !found->second.empty()) block.addEnvelope(found->second.front());
    }
    OccurrenceValues values(headers);
    for (const auto& key : order) {
        if (key == kFromSpaceKey) continue;
        const auto original = originalKeys.find(key);
        const std::string& name = original == originalKeys.end() ? key : original->second;
        for (const auto& value : values.next(key)) block.addHeader(key, name, value);
    }
    return block.finished();
}

}  // namespace lorvale
