#include "mail/mime/TransferChoice.h"

#include <algorithm>
#include <array>

#include "base/text/Ascii.h"
#include "base/text/DataUtils.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr std::size_t kMostInLine = 998, kUsualLine = 78;  // RFC 5322, section 2.1.1

constexpr bool isControl(std::uint8_t c) {
    return c < 0x20 && c != '\t' && c != '\n';
}

constexpr bool is8bit(std::uint8_t c) {
    return c > 0x7F;
}

constexpr auto kClassicSuspects = byteTable([](std::uint8_t c) { return isControl(c) || is8bit(c); });
constexpr auto kStandardSuspects =
    byteTable([](std::uint8_t c) { return isControl(c) || is8bit(c) || c == 0x7F; });

/// Without a branch on the byte: in files each is a surprise.
std::size_t countBytes(std::string_view body, const std::array<bool, 256>& in) {
    std::size_t count = 0;
    for (const char c : body) count += in[static_cast<std::uint8_t>(c)] ? 1U : 0U;
    return count;
}

/// Calls `visit` with the places of the newlines and with the end.
template <class Visit>
void walkLineEnds(std::string_view body, Visit visit) {
    for (auto at = body.find('\n'); at != std::string_view::npos; at = body.find('\n', at + 1)) visit(at);
    visit(body.size());
}

/// From one newline to the next, so that each line but the first counts its newline too: what was sent
/// unencoded by this rule always was so.
std::size_t longestClassicDistance(std::string_view body) {
    std::size_t longest = 0, last = 0;
    walkLineEnds(body, [&](std::size_t end) {
        longest = std::max(longest, end - last);
        last = end;
    });
    return longest;
}

std::size_t longestLine(std::string_view body) {
    std::size_t longest = 0, start = 0;
    walkLineEnds(body, [&](std::size_t end) {
        longest = std::max(longest, end - start);
        start = end + 1;
    });
    return longest;
}

std::string_view classicChoice(std::string_view body, BodyKind kind, std::size_t lineLength) {
    const auto suspicious = countBytes(body, kClassicSuspects);
    if (suspicious == 0 && longestClassicDistance(body) < lineLength) return "7bit";
    if (kind == BodyKind::message) return "8bit";
    const std::size_t cost = kind == BodyKind::text ? 2 : 6;
    return suspicious * cost < body.size() ? "quoted-printable" : "base64";
}

/// A mailbox would take such a line for the beginning of the next message.
bool hasFromLine(std::string_view body) {
    return body.starts_with("From ") || findBytes(body, "\nFrom ") != std::string_view::npos;
}

std::string_view standardChoice(std::string_view body, BodyKind kind) {
    // RFC 2045, section 6.4: the parts of a message have encodings, the message has none.
    if (kind == BodyKind::message) return canGoAs7bit(body) ? "7bit" : "8bit";
    const auto suspicious = countBytes(body, kStandardSuspects);
    if (suspicious == 0 && longestLine(body) <= kUsualLine && !hasFromLine(body)) return "7bit";
    // The shorter one: two more for a byte that is encoded, or one more for three bytes.
    return kind == BodyKind::text && suspicious * 6 <= body.size() ? "quoted-printable" : "base64";
}

}  // namespace

std::string_view transferEncodingFor(std::string_view body, BodyKind kind, std::size_t lineLength,
                                     MailDialect dialect) {
    return dialect == MailDialect::classic ? classicChoice(body, kind, lineLength) : standardChoice(body, kind);
}

bool canGoAs7bit(std::string_view body) {
    return canGoAs8bit(body) && isAscii(body);
}

bool canGoAs8bit(std::string_view body) {
    return body.find('\0') == std::string_view::npos && body.find('\r') == std::string_view::npos &&
           longestLine(body) <= kMostInLine;
}

}  // namespace lorvale
