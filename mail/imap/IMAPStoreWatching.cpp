/// Having the server tell of changes as they happen.
#include <algorithm>
#include <utility>

#include "lorvale/imap/store.h"
#include "lorvale/platform/log.h"
#include "mail/imap/ServerLock.h"

namespace lorvale {

namespace {

/// Whoever took the server's attention away mostly has more to ask.
constexpr std::chrono::milliseconds kPause(50);

}  // namespace

bool IMAPStore::watch(std::chrono::milliseconds askAnewAfter) {
    if (_isWatched) return true;
    if (!isStandard() || !checkConnectionToServer()) return false;
    {
        const ServerTurn turn(*_lock);
        if (!_connection->hasCapability("IDLE")) return false;
    }
    _isWatched = true;
    try {
        _watcher = Thread("imap watch", [store = std::static_pointer_cast<IMAPStore>(shared_from_this()),
                                         askAnewAfter](const std::stop_token& stop) mutable {
            runLoggingExceptions("imap watch", [&] { store->idleUntil(stop, askAnewAfter); });
            store->_isWatched = false;
            store.reset();
        });
    } catch (...) {
        _isWatched = false;
        throw;
    }
    return true;
}

/// The connection is everybody's: who wants it wakes this thread, which then waits until nobody does.
void IMAPStore::idleUntil(const std::stop_token& stop, std::chrono::milliseconds askAnewAfter) {
    const std::stop_callback wake(stop, [this] { _connection->stopIdling(); });
    while (_connected && goesOn() && !stop.stop_requested()) {
        if (isSynchronizing() || _lock->isWanted()) {
            (void)sleepUnlessStopped(stop, kPause);
            continue;
        }
        const ServerTurn turn(*_lock);
        _isIdling = true;  // before the look at who waits: one of the two sees the other
        const auto end = _lock->isWanted() ? IMAPConnection::IdleEnd::stopped : _connection->idle(askAnewAfter);
        _isIdling = false;
        if (end == IMAPConnection::IdleEnd::refused) return;
    }
}

/// Of another thread that wants the connection.
void IMAPStore::askForConnection() {
    if (_isIdling.exchange(false)) _connection->stopIdling();
}

/// The new messages that the last look has found, once their flags are known.
void IMAPStore::tellOfNewMail() {
    const auto arrived = std::exchange(_arrived, {});
    const bool isNews =
        std::ranges::any_of(arrived, [](const auto& message) { return !message->messageFlags()->isRead(); });
    if (isNews) NotificationCenter::defaultCenter().postNotification(MessageStoreNewMail, shared_from_this());
}

}  // namespace lorvale
