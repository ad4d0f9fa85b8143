// What is decoded, edited and encoded decodes to the same: the same headers in the same order, each value as
// one trip through the coding of header values leaves it.  The cached headers alone are those of the whole
// block.

#include "base/text/Ascii.h"
#include "fuzz/FuzzTarget.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"
#include "mail/encoding/WordWriter.h"
#include "mail/model/HeaderClasses.h"
#include "mail/model/HeaderDecoding.h"
#include "mail/model/HeaderEncoding.h"
#include "tests/support/HeaderBlocks.h"

using namespace lorvale;

namespace {

using Block = lorvale::testing::HeaderBlock;
using lorvale::testing::decodeBlock;

constexpr std::string_view kWrittenAsBlanks{"\r\0\v\f\x1C\x1D\x1E", 7};

/// What decoding makes of the line that encoding writes for a value.
std::string afterOneTrip(std::string_view value, bool trimsBehind) {
    const auto line = encodeMimeHeaderValue(value);
    std::string unfolded;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const bool isOfLineEnd = line[i] == '\r' && (i + 1 == line.size() || line[i + 1] == '\n');
        if (line[i] != '\n') {
            unfolded +=
                !isOfLineEnd && kWrittenAsBlanks.find(line[i]) != std::string_view::npos ? ' ' : line[i];
        } else if (i + 1 < line.size() && (line[i + 1] == ' ' || line[i + 1] == '\t')) {
            ++i;
        }
    }
    unfolded.erase(0, std::min(unfolded.find_first_not_of(" \t"), unfolded.size()));
    if (trimsBehind) unfolded.erase(unfolded.find_last_not_of(" \t") + 1);
    return decodeMimeHeaderValue(decodeCString(encodeCString(unfolded).view()));
}

/// A name that is written otherwise, or would be taken for an envelope line where it stands first.
bool hasOddName(const Block& block) {
    return std::ranges::any_of(block.originalKeys, [](const auto& each) {
        const bool hasControl = std::ranges::any_of(each.second, isAsciiControl);
        return each.first != kFromSpaceKey && (hasControl || each.second.starts_with("From "));
    });
}

}  // namespace

/// The standard dialect: what one trip leaves of the text values, all further ones leave alone.
void requireStandardTrip(std::string_view text) {
    constexpr auto kStandard = MailDialect::standard;
    const auto first = decodeBlock(text, kStandard);
    fuzz::require(lorvale::testing::cachedHeadersAgree(text, first, kStandard));
    const auto length = headerLength(text, kStandard);
    fuzz::require(decodeBlock(text.substr(0, length), kStandard) == first);
    const auto written =
        encodeHeaderBlock(first.headers, first.order, first.originalKeys, EnvelopeLine::leaveOut, kStandard);
    const auto second = decodeBlock(written.view(), kStandard);
    for (const auto& [key, values] : first.headers) {
        const bool once = values.size() == 1 && std::ranges::count(first.order, key) == 1;
        if (!once || key == kFromSpaceKey || headerClass(key).syntax != HeaderSyntax::text) continue;
        const auto found = second.headers.find(key);
        fuzz::require(found != second.headers.end() && found->second.front() == harmlessText(values.front()));
    }
}

LORVALE_FUZZ_TARGET(text) {
    requireStandardTrip(text);
    auto first = decodeBlock(text);
    fuzz::require(lorvale::testing::cachedHeadersAgree(text, first));

    first.headers["x-edited"] = {"yes"};
    if (std::ranges::find(first.order, "x-edited") == first.order.end()) first.order.push_back("x-edited");
    const auto written =
        encodeHeaderBlock(first.headers, first.order, first.originalKeys, EnvelopeLine::leaveOut);
    const auto second = decodeBlock(written.view());
    if (hasOddName(first)) return;

    for (const auto& [key, values] : first.headers) {
        const bool gathers = key == "to" || key == "cc" || key == "received", replaces = key == "from";
        const auto places = std::ranges::count(first.order, key);
        if (key == kFromSpaceKey || values.empty() || places != std::ssize(values)) continue;
        std::vector<std::string> expected;
        for (const auto& value : values) expected.push_back(afterOneTrip(value, gathers || replaces));
        const auto found = second.headers.find(key);
        fuzz::require(found != second.headers.end());
        // A value of nothing but white space leaves no value behind where values are gathered.
        if (gathers || replaces) {
            if (std::ranges::any_of(expected, &std::string::empty)) continue;
        }
        fuzz::require(found->second == expected);
    }
}
