#include "lorvale/toolkit/storage/exception.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

namespace brindle {

namespace {

std::atomic<IAExceptionHookProc> gExceptionHookProc{nullptr};

/// How much of a text goes into a field: all of it, or one less than the field holds if it is longer.  Hosts
/// compare the texts they get, so the odd last character stays lost.
std::size_t LengthKept(const char* text, std::size_t most) {
    const std::size_t length = std::strlen(text);
    return length > most ? most - 1 : length;
}

}  // namespace

IAException::IAException(const char* text) {
    std::memcpy(message.data(), text, LengthKept(text, MaxMessageLength));
}

IAException::~IAException() = default;

const char* IAException::what() const noexcept {
    return message.data();
}

void IAException::SetLocation(const char* text) {
    const std::size_t used = std::strlen(location.data());
    const std::size_t kept = std::min(LengthKept(text, MaxLocationLength), MaxLocationLength - used);
    std::memcpy(location.data() + used, text, kept);
}

void IASetExceptionHookProc(IAExceptionHookProc hook) {
    gExceptionHookProc = hook;
}
IAExceptionHookProc IAGetExceptionHookProc() {
    return gExceptionHookProc;
}

void IAThrowException(IAException exception) {
    if (const IAExceptionHookProc hook = gExceptionHookProc)
        hook(exception.What(), exception.GetLocation(), exception.GetCode());
    throw exception;
}

void IAAssertionFunc(const char* file, int line, const char* /*condition*/, const char* message,
                     std::int32_t code) {
    char location[IAException::MaxLocationLength + 32];
    std::snprintf(location, sizeof location, "%s : %d", file, line);
    IAException exception(message);
    exception.SetLocation(location);
    exception.SetCode(code);
    IAThrowException(exception);
}

}  // namespace brindle
