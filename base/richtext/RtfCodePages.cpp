#include "base/richtext/RtfCodePages.h"

#include <algorithm>
#include <array>

#include "base/text/NamedCharset.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

struct Charset {
    int number;
    int codePage;
};

constexpr auto kCharsets = std::to_array<Charset>({
    {77, 10000},
    {128, 932},
    {129, 949},
    {130, 1361},
    {134, 936},
    {136, 950},
    {161, 1253},
    {162, 1254},
    {163, 1258},
    {177, 1255},
    {178, 1256},
    {186, 1257},
    {204, 1251},
    {222, 874},
    {238, 1250},
    {254, 437},
    {255, 850},
});
static_assert(std::ranges::is_sorted(kCharsets, {}, &Charset::number), "found by binary search");

/// As the system's converter calls it.
std::string nameOfCodePage(int codePage) {
    if (codePage == 10000) return "MACINTOSH";
    if (codePage == 65001) return "UTF-8";
    if (codePage == 1361) return "JOHAB";
    if (codePage == 936) return "GB18030";
    return "CP" + std::to_string(codePage);
}

}  // namespace

int codePageOfRtfCharset(int charset) {
    const auto* const found = std::ranges::lower_bound(kCharsets, charset, {}, &Charset::number);
    return found != kCharsets.end() && found->number == charset ? found->codePage : 0;
}

std::string textInCodePage(std::string_view bytes, int codePage) {
    if (isAscii(bytes)) return std::string(bytes);
    auto text = codePage == 1252 ? std::nullopt : decodeNamedCharset(bytes, nameOfCodePage(codePage));
    return text ? *std::move(text) : decodeLossy(bytes, StringEncoding::windowsCP1252);
}

}  // namespace lorvale
