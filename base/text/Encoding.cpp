#include "lorvale/values/encoding.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "base/text/Iconv.h"
#include "base/text/Iso2022JP.h"
#include "base/text/SingleByteEncoding.h"
#include "base/text/Utf16.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/localization.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr char kEscape = '\x1B';

constexpr auto kAvailable = std::to_array<AvailableEncoding>({
    {StringEncoding::ascii, "Western (ASCII)"},
    {StringEncoding::tarn, "Western (Tarn)"},
    {StringEncoding::japaneseEUC, "Japanese (EUC)"},
    {StringEncoding::utf8, "Unicode (UTF-8)"},
    {StringEncoding::isoLatin1, "Western (ISO Latin 1)"},
    {StringEncoding::shiftJIS, "Japanese (Shift JIS)"},
    {StringEncoding::isoLatin2, "Central European (ISO Latin 2)"},
    {StringEncoding::unicode, "Unicode (UTF-16)"},
    {StringEncoding::windowsCP1252, "Western (Windows 1252)"},
    {StringEncoding::windowsCP1250, "Central European (Windows 1250)"},
    {StringEncoding::iso2022JP, "Japanese (ISO 2022-JP)"},
});
static_assert(std::ranges::is_sorted(kAvailable, {}, &AvailableEncoding::encoding));

std::optional<char32_t> readAsReplacement(std::uint8_t) {
    return 0xFFFD;
}
std::optional<char32_t> readAsLatin1(std::uint8_t byte) {
    return byte;
}

bool isAvailable(StringEncoding encoding) {
    return std::ranges::binary_search(kAvailable, encoding, {}, &AvailableEncoding::encoding);
}

const SingleByteEncoding* singleByteEncoding(StringEncoding encoding) {
    switch (encoding) {
        case StringEncoding::tarn:
            return &SingleByteEncoding::tarn();
        case StringEncoding::isoLatin1:
            return &SingleByteEncoding::isoLatin1();
        case StringEncoding::isoLatin2:
            return SingleByteEncoding::isoLatin2();
        case StringEncoding::windowsCP1250:
            return SingleByteEncoding::windowsCP1250();
        case StringEncoding::windowsCP1252:
            return SingleByteEncoding::windowsCP1252();
        default:
            return nullptr;
    }
}

/// The converters of the encodings that the OS knows better, one pair for each thread.
struct Converters {
    explicit Converters(const char* name) : toUtf8("UTF-8", name), fromUtf8(name, "UTF-8") {}
    Iconv toUtf8, fromUtf8;
};

Converters* convertersFor(StringEncoding encoding) {
    switch (encoding) {
        case StringEncoding::japaneseEUC: {
            thread_local Converters converters("EUC-JP-MS");
            return &converters;
        }
        case StringEncoding::shiftJIS: {
            thread_local Converters converters("CP932");
            return &converters;
        }
        case StringEncoding::iso2022JP: {
            thread_local Converters converters("ISO-2022-JP");
            return &converters;
        }
        default:
            return nullptr;
    }
}

/// Whether the bytes below 0x80 of a text mean themselves.
bool keepsAscii(StringEncoding encoding, std::string_view asciiBytes) {
    if (encoding == StringEncoding::unicode || encoding == StringEncoding::unknown) return false;
    return encoding != StringEncoding::iso2022JP || asciiBytes.find(kEscape) == std::string_view::npos;
}

/// UTF-8 or ASCII to valid UTF-8.
std::optional<std::string> decodeUtf8(std::string_view bytes, bool asciiOnly, Iconv::Substitute substitute) {
    if (!asciiOnly && isValidUtf8(bytes)) return std::string(bytes);
    if (substitute == nullptr) return std::nullopt;
    std::string text;
    text.reserve(bytes.size() + bytes.size() / 8);
    while (!bytes.empty()) {
        const auto byte = static_cast<std::uint8_t>(bytes.front());
        if (asciiOnly && byte >= 0x80) {
            appendUtf8(text, *substitute(byte));
            bytes.remove_prefix(1);
            continue;
        }
        const auto c = nextCodePoint(bytes);
        appendUtf8(text, isBadByte(c) ? *substitute(byte) : c);
    }
    return text;
}

std::optional<std::string> decodeByIconv(std::string_view bytes, StringEncoding encoding,
                                         Converters& converters, Iconv::Substitute substitute) {
    if (auto text = converters.toUtf8.convert(bytes)) return text;
    if (encoding == StringEncoding::iso2022JP) {
        const auto euc = eucFromIso2022JP(bytes);
        auto text = euc ? convertersFor(StringEncoding::japaneseEUC)->toUtf8.convert(*euc) : std::nullopt;
        if (text) return text;
    }
    return substitute == nullptr ? std::nullopt : converters.toUtf8.convert(bytes, substitute);
}

std::optional<std::string> decodeWith(std::string_view bytes, StringEncoding encoding,
                                      Iconv::Substitute substitute) {
    if (isAscii(bytes) && keepsAscii(encoding, bytes)) return std::string(bytes);
    if (const auto* const single = singleByteEncoding(encoding)) return single->decode(bytes);
    if (auto* const converters = convertersFor(encoding))
        return decodeByIconv(bytes, encoding, *converters, substitute);
    if (encoding == StringEncoding::unicode) return decodeUtf16(bytes, substitute != nullptr);
    if (encoding == StringEncoding::utf8) return decodeUtf8(bytes, false, substitute);
    if (encoding == StringEncoding::ascii || substitute != nullptr) return decodeUtf8(bytes, true, substitute);
    return std::nullopt;
}

std::optional<std::string> encodeSingleByte(std::string_view utf8, const SingleByteEncoding* encoding,
                                            Lossy lossy) {
    std::string bytes;
    bytes.reserve(utf8.size());
    while (!utf8.empty()) {
        const auto ascii = asciiPrefixLength(utf8);
        bytes += utf8.substr(0, ascii);
        utf8.remove_prefix(ascii);
        while (!utf8.empty() && static_cast<std::uint8_t>(utf8.front()) >= 0x80) {
            const auto c = nextCodePoint(utf8);
            const auto byte = encoding == nullptr ? std::nullopt : encoding->byteFor(c);
            if (!byte && lossy == Lossy::no) return std::nullopt;
            bytes += byte ? static_cast<char>(*byte) : '?';
        }
    }
    return bytes;
}

std::string withoutBadBytes(std::string_view utf8) {
    std::string clean;
    while (!utf8.empty()) {
        const auto c = nextCodePoint(utf8);
        appendUtf8(clean, isBadByte(c) ? U'?' : c);
    }
    return clean;
}

/// iconv finds bytes for more characters than it reads back from them (the yen sign becomes a backslash in the
/// Japanese encodings): such a text counts as not convertible, so that nobody gets to read another one.
std::optional<std::string> encodeByIconv(std::string_view utf8, Converters& converters, Lossy lossy) {
    const auto bytes = converters.fromUtf8.convert(utf8);
    if (lossy == Lossy::no) {
        if (bytes && converters.toUtf8.convert(*bytes) == utf8) return bytes;
        return std::nullopt;
    }
    if (bytes) return bytes;
    // Character by character: a "?" in the text instead of one in the bytes, since those may have shift states.
    std::string kept;
    while (!utf8.empty()) {
        auto rest = utf8;
        const auto c = nextCodePoint(rest);
        const auto character = utf8.substr(0, utf8.size() - rest.size());
        const bool known = c < 0x80 || (!isBadByte(c) && converters.fromUtf8.convert(character));
        kept += known ? character : std::string_view("?");
        utf8 = rest;
    }
    return converters.fromUtf8.convert(kept);
}

std::optional<std::string> encodeText(std::string_view utf8, StringEncoding encoding, Lossy lossy) {
    if (!isAvailable(encoding)) return std::nullopt;
    if (isAscii(utf8) && keepsAscii(encoding, utf8)) return std::string(utf8);
    if (auto* const converters = convertersFor(encoding)) return encodeByIconv(utf8, *converters, lossy);
    if (encoding == StringEncoding::utf8 || encoding == StringEncoding::unicode) {
        const bool valid = isValidUtf8(utf8);
        if (!valid && lossy == Lossy::no) return std::nullopt;
        const auto text = valid ? std::string(utf8) : withoutBadBytes(utf8);
        return encoding == StringEncoding::utf8 ? text : encodeUtf16(text);
    }
    return encodeSingleByte(utf8, singleByteEncoding(encoding), lossy);
}

std::atomic<StringEncoding> cStringEncoding{StringEncoding::tarn};

}  // namespace

std::optional<std::string> decode(std::string_view bytes, StringEncoding encoding) {
    return decodeWith(bytes, encoding, nullptr);
}

std::string decodeLossy(std::string_view bytes, StringEncoding encoding) {
    auto text = decodeWith(bytes, encoding, readAsReplacement);
    if (!text) text = decodeUtf8(bytes, true, readAsReplacement);  // the OS lacks the encoding
    return *std::move(text);
}

std::optional<Data> encode(std::string_view utf8, StringEncoding encoding, Lossy lossy) {
    auto bytes = encodeText(utf8, encoding, lossy);
    if (!bytes) return std::nullopt;
    return Data(*std::move(bytes));
}

bool canConvert(std::string_view utf8, StringEncoding encoding) {
    if (isAscii(utf8)) {
        // Asked of every header and body before it is sent, so the common answer must not cost a copy.
        if (keepsAscii(encoding, utf8)) return isAvailable(encoding);
        if (encoding == StringEncoding::unicode) return true;
    }
    return encodeText(utf8, encoding, Lossy::no).has_value();
}

std::span<const AvailableEncoding> availableStringEncodings() {
    return kAvailable;
}

std::string localizedNameOfStringEncoding(StringEncoding encoding) {
    const auto found = std::ranges::find(kAvailable, encoding, &AvailableEncoding::encoding);
    return found == kAvailable.end() ? std::string()
                                     : LVLocalizedString(found->name, "name of a string encoding");
}

StringEncoding defaultCStringEncoding() {
    return cStringEncoding;
}

void setDefaultCStringEncoding(StringEncoding encoding) {
    if (!isAvailable(encoding) || encoding == StringEncoding::unicode || encoding == StringEncoding::iso2022JP)
        throw InvalidArgumentException(
            formatText("encoding %d cannot hold C strings", static_cast<std::uint32_t>(encoding)));
    cStringEncoding = encoding;
}

std::string decodeCString(std::string_view bytes) {
    if (isAscii(bytes)) return std::string(bytes);
    auto text = decodeWith(bytes, defaultCStringEncoding(), readAsLatin1);
    return text ? *std::move(text) : SingleByteEncoding::isoLatin1().decode(bytes);
}

Data encodeCString(std::string_view utf8) {
    auto bytes = encodeText(utf8, defaultCStringEncoding(), Lossy::yes);
    return bytes ? Data(*std::move(bytes)) : Data(*encodeSingleByte(utf8, nullptr, Lossy::yes));
}

}  // namespace lorvale
