/// Waiting for what the server tells by itself.
#include <algorithm>

#include "base/text/Ascii.h"
#include "lorvale/imap/connection.h"
#include "lorvale/imap/words.h"
#include "mail/imap/Engine.h"

namespace lorvale {

namespace {

using Clock = std::chrono::steady_clock;

/// What follows the first news within this time belongs to it.
constexpr auto kBurst = std::chrono::milliseconds(50);
constexpr std::chrono::milliseconds kMostIdle = std::chrono::minutes(28);

/// A sign of life, "* OK still here", is none.
bool hasNews(const IMAPConnection::Untagged& told) {
    return std::ranges::any_of(told, [](const auto& entry) {
        const auto& key = entry.first;
        return isAsciiDigit(key.front()) || key == IMAPResponseExist || key == IMAPResponseRecent ||
               key == IMAPResponseExpunge;
    });
}

std::chrono::milliseconds timeUntil(Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

}  // namespace

IMAPConnection::IdleEnd IMAPConnection::idle(std::chrono::milliseconds atMost) {
    if (!_engine->isStandard() || !hasCapability("IDLE")) return IdleEnd::refused;
    const auto end = Clock::now() + std::clamp(atMost, std::chrono::milliseconds(0), kMostIdle);
    const auto tag = _engine->send("IDLE", {});
    auto why = IdleEnd::refused;
    if (_engine->wait(tag) == Result::continuation) {
        why = idleUntil(end, tag);
        if (_engine->isWaitedFor(tag) && _engine->write({"DONE\r\n"})) (void)_engine->wait(tag);
    }
    _engine->finish(tag);
    return connectionState() == State::notConnected ? IdleEnd::refused : why;
}

IMAPConnection::IdleEnd IMAPConnection::idleUntil(Clock::time_point end, std::uint32_t tag) {
    bool isNews = false;
    while (_engine->isWaitedFor(tag)) {
        if (_isIdlingToStop.exchange(false)) return IdleEnd::stopped;
        if (_engine->waitForInput(timeUntil(end))) {
            (void)_engine->readLine();
            if (!isNews && hasNews(_engine->untagged())) {
                isNews = true;
                end = std::min(end, Clock::now() + kBurst);
            }
        }
        if (Clock::now() >= end) return isNews ? IdleEnd::news : IdleEnd::timeout;
    }
    return isNews ? IdleEnd::news : IdleEnd::refused;
}

void IMAPConnection::stopIdling() {
    _isIdlingToStop = true;
    _engine->wake();
}

}  // namespace lorvale
