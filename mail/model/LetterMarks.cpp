#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <span>
#include <string>

#include "base/text/Ascii.h"
#include "lorvale/message/dates.h"
#include "lorvale/platform/exception.h"
#include "lorvale/values/format.h"

namespace lorvale {

namespace {

/// RFC 5322, section 3.2.3: runs of these characters with single dots between.
bool isDotAtom(std::string_view text) {
    const auto isAtomCharacter = [](char c) {
        return isAsciiAlphanumeric(c) ||
               std::string_view("!#$%&'*+-/=?^_`{|}~").find(c) != std::string_view::npos;
    };
    // What a domain name may have at most; longer ones make a line that nobody can fold.
    constexpr std::size_t kLongest = 255;
    bool afterDot = true;
    for (const char c : text) {
        if (c == '.' ? afterDot : !isAtomCharacter(c)) return false;
        afterDot = c == '.';
    }
    return !afterDot && text.size() <= kLongest;
}

std::string hostName() {
    std::array<char, 256> name{};
    const bool known = ::gethostname(name.data(), name.size() - 1) == 0;
    return known && isDotAtom(name.data()) ? name.data() : "localhost";
}

void fillWithRandomBytes(std::span<std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const auto got = ::getrandom(bytes.data(), bytes.size(), 0);
        if (got < 0 && errno != EINTR) throw GenericException("The system gives no random numbers.");
        if (got > 0) bytes = bytes.subspan(static_cast<std::size_t>(got));
    }
}

}  // namespace

std::string dateHeaderText(const Date& date) {
    const auto whole = date.inZone(date.zoneOffset() / 60 * 60);
    return whole.descriptionWithCalendarFormat("%a, %e %b %Y %H:%M:%S %z");
}

std::string makeMessageID(std::string_view domain) {
    // 26 characters of 5 bits each; no digit or letter that is read for another.
    constexpr std::string_view kAlphabet = "abcdefghijkmnpqrstuvwxyz23456789";
    static_assert(kAlphabet.size() == 32);
    std::array<std::uint8_t, 26> random{};
    fillWithRandomBytes(random);
    std::string id = "<";
    for (const auto byte : random) id += kAlphabet[byte % kAlphabet.size()];
    return id + '@' + (isDotAtom(domain) ? std::string(domain) : hostName()) + '>';
}

}  // namespace lorvale
