#include "base/text/NamedCharset.h"

#include <algorithm>
#include <array>
#include <list>

#include "base/text/Ascii.h"
#include "base/text/Iconv.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

struct Alias {
    std::string_view name;    // in lower case
    StringEncoding encoding;  // unknown: the system's converter reads it under the next name
    const char* system = nullptr;
};

/// Names that the system's converter lacks or takes too narrowly.  Charsets that are meant by a name of a part
/// of them follow the Encoding Standard of the WHATWG, as mail programs do.
constexpr auto kAliases = std::to_array<Alias>({
    {"ansi_x3.4-1968", StringEncoding::ascii},
    {"ascii", StringEncoding::ascii},
    {"cp-850", StringEncoding::unknown, "CP850"},
    {"cp1252", StringEncoding::windowsCP1252},
    {"cp932", StringEncoding::shiftJIS},
    {"euc-jp", StringEncoding::japaneseEUC},
    {"euc-kr", StringEncoding::unknown, "UHC"},
    {"gb2312", StringEncoding::unknown, "GB18030"},
    {"gb_2312-80", StringEncoding::unknown, "GB18030"},
    {"gbk", StringEncoding::unknown, "GB18030"},
    {"hz-gb-2312", StringEncoding::unknown, "HZ-GB-2312"},
    {"iso-2022-jp", StringEncoding::iso2022JP},
    {"iso-8859-1", StringEncoding::windowsCP1252},
    {"iso-8859-2", StringEncoding::isoLatin2},
    {"iso-8859-8-e", StringEncoding::unknown, "ISO-8859-8"},
    {"iso-8859-8-i", StringEncoding::unknown, "ISO-8859-8"},
    {"iso8859-1", StringEncoding::windowsCP1252},
    {"iso_8859-1", StringEncoding::windowsCP1252},
    {"ks_c_5601-1987", StringEncoding::unknown, "UHC"},
    {"ksc5601", StringEncoding::unknown, "UHC"},
    {"latin1", StringEncoding::windowsCP1252},
    {"ms_kanji", StringEncoding::shiftJIS},
    {"shift-jis", StringEncoding::shiftJIS},
    {"shift_jis", StringEncoding::shiftJIS},
    {"sjis", StringEncoding::shiftJIS},
    {"tis-620", StringEncoding::unknown, "CP874"},
    {"unicode-1-1", StringEncoding::unicode},
    {"unicode-1-1-utf-7", StringEncoding::unknown, "UTF-7"},
    {"us-ascii", StringEncoding::ascii},
    {"utf-16", StringEncoding::unicode},
    {"utf-8", StringEncoding::utf8},
    {"utf8", StringEncoding::utf8},
    {"windows-1250", StringEncoding::windowsCP1250},
    {"windows-1252", StringEncoding::windowsCP1252},
    {"windows-31j", StringEncoding::shiftJIS},
    {"windows-874", StringEncoding::unknown, "CP874"},
    {"windows-949", StringEncoding::unknown, "UHC"},
    {"x-mac-roman", StringEncoding::unknown, "MACINTOSH"},
});
static_assert(std::ranges::is_sorted(kAliases, {}, &Alias::name), "found by binary search");

const Alias* aliasNamed(std::string_view lowerName) {
    const auto* const found = std::ranges::lower_bound(kAliases, lowerName, {}, &Alias::name);
    return found != kAliases.end() && found->name == lowerName ? found : nullptr;
}

/// The name goes to the system, which reads paths and options out of slashes and commas.
bool isHarmless(std::string_view name) {
    constexpr std::size_t kLongest = 40;
    return !name.empty() && name.size() <= kLongest && std::ranges::all_of(name, [](char c) {
        return isAsciiAlphanumeric(c) || std::string_view("-_.:+()").find(c) != std::string_view::npos;
    });
}

/// The last few converters of this thread: opening one is slow, and a stranger may name them all.
class RecentConverters {
public:
    /// Null when the system does not know the charset.
    Iconv* named(const std::string& name) {
        const auto found = std::ranges::find(_recent, name, &Entry::name);
        if (found != _recent.end()) {
            _recent.splice(_recent.begin(), _recent, found);
            return &_recent.front().converter;
        }
        _recent.emplace_front(name);
        if (!_recent.front().converter.isOpen()) {
            _recent.pop_front();
            return nullptr;
        }
        constexpr std::size_t kMost = 8;
        if (_recent.size() > kMost) _recent.pop_back();
        return &_recent.front().converter;
    }

private:
    struct Entry {
        explicit Entry(const std::string& charset) : name(charset), converter("UTF-8", name.c_str()) {}
        std::string name;
        Iconv converter;
    };
    std::list<Entry> _recent;  // the latest first
};

std::optional<std::string> decodeBySystem(std::string_view bytes, const std::string& charset) {
    thread_local RecentConverters converters;
    auto* const converter = isHarmless(charset) ? converters.named(charset) : nullptr;
    if (converter == nullptr) return std::nullopt;
    auto text = converter->convert(bytes, [](std::uint8_t) -> std::optional<char32_t> { return 0xFFFD; });
    return text && isValidUtf8(*text) ? text : std::nullopt;
}

std::optional<std::string> decodeByName(std::string_view bytes, const std::string& lowerName) {
    const auto* const alias = aliasNamed(lowerName);
    if (alias == nullptr) return decodeBySystem(bytes, lowerName);
    if (alias->encoding == StringEncoding::unknown) return decodeBySystem(bytes, alias->system);
    // Programs that label all they send as ASCII send everything.
    if (alias->encoding == StringEncoding::ascii) return decodeUnlabelled(bytes, StringEncoding::unknown);
    return decodeLossy(bytes, alias->encoding);
}

}  // namespace

std::optional<std::string> decodeNamedCharset(std::string_view bytes, std::string_view charset) {
    // What most words name, without a look at any table.
    if (equalIgnoringAsciiCase(charset, "utf-8")) return decodeLossy(bytes, StringEncoding::utf8);
    const auto name = asciiLowered(charset);
    auto text = decodeByName(bytes, name);
    return text || !name.starts_with("x-") ? text : decodeByName(bytes, name.substr(2));
}

std::string decodeUnlabelled(std::string_view bytes, StringEncoding preferred) {
    if (isValidUtf8(bytes)) return std::string(bytes);
    auto text = preferred == StringEncoding::unknown ? std::nullopt : decode(bytes, preferred);
    return text ? *std::move(text) : decode(bytes, StringEncoding::windowsCP1252).value_or(std::string(bytes));
}

}  // namespace lorvale
