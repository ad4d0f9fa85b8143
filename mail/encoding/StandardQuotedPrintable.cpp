#include <algorithm>
#include <cstring>
#include <optional>

#include "base/text/Ascii.h"
#include "mail/encoding/TransferDecoders.h"

namespace lorvale {

namespace {

/// Where the soft line break ends whose "=" stands in front of `rest`; nullopt when it is none.
std::optional<std::size_t> softBreakLength(std::string_view rest) {
    auto length = std::min(rest.find_first_not_of(" \t"), rest.size());
    if (length == rest.size()) return length;
    if (rest[length] == '\r') ++length;
    if (length < rest.size() && rest[length] == '\n') return length + 1;
    return length > 0 && rest[length - 1] == '\r' ? std::optional(length) : std::nullopt;
}

/// Copies text without escapes.
std::size_t copyPlain(std::string_view in, std::uint8_t* to) {
    std::memcpy(to, in.data(), in.size());
    return in.size();
}

}  // namespace

void appendStandardQuotedPrintable(ByteBuffer& out, std::string_view in) {
    auto* const to = out.reserve(in.size());
    std::size_t written = 0;
    while (!in.empty()) {
        const auto plain = in.substr(0, in.find('='));
        written += copyPlain(plain, to + written);
        in.remove_prefix(plain.size());
        if (in.empty()) break;
        in.remove_prefix(1);
        if (const auto length = softBreakLength(in)) {
            in.remove_prefix(*length);
            continue;
        }
        const int high = hexDigitValue(in[0]), low = in.size() > 1 ? hexDigitValue(in[1]) : -1;
        if (high < 0 || low < 0) {
            to[written++] = '=';
            continue;
        }
        to[written++] = static_cast<std::uint8_t>(high * 16 + low);
        in.remove_prefix(2);
    }
    out.commit(written);
}

}  // namespace lorvale
