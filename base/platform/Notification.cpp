#include "lorvale/platform/notification.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "lorvale/platform/mutex.h"
#include "lorvale/platform/thread.h"

namespace lorvale {

/// One callback, and who is in it at the moment.
struct ObserverToken::Observer {
    Observer(NotificationCenter::Callback function, std::string_view wantedName,
             const std::shared_ptr<const void>& wantedObject)
        : name(wantedName),
          address(wantedObject.get()),
          object(wantedObject),
          isTracked(wantedObject.use_count() > 0),
          callback(std::move(function)) {}

    bool wants(const Notification& notification) const {
        if (!name.empty() && name != notification.name) return false;
        if (address == nullptr) return true;
        // An object that died may have left its address to another one.
        return address == notification.object.get() && (!isTracked || !object.expired());
    }

    void call(const Notification& notification) {
        {
            const std::lock_guard lock(mutex);
            if (removed) return;
            callers.push_back(std::this_thread::get_id());
        }
        runLoggingExceptions("Notification " + notification.name, [&] { callback(notification); });
        NotificationCenter::Callback dropped;  // destroyed without the lock
        const std::lock_guard lock(mutex);
        callers.erase(std::ranges::find(callers, std::this_thread::get_id()));
        if (removed && callers.empty()) dropped.swap(callback);
        left.notify_all();
    }

    /// Returns when no other thread is in the callback and none will enter it.
    void remove() {
        NotificationCenter::Callback dropped;
        std::unique_lock lock(mutex);
        removed = true;
        const auto here = std::this_thread::get_id();
        left.wait(lock,
                  [&] { return std::ranges::all_of(callers, [&](auto caller) { return caller == here; }); });
        // Inside its own callback the function must outlive the call that runs in it.
        if (callers.empty()) dropped.swap(callback);
        lock.unlock();
    }

    const std::string name;
    const void* const address;
    const std::weak_ptr<const void> object;
    const bool isTracked;

    std::mutex mutex;  // never held while the callback runs
    std::condition_variable left;
    std::vector<std::thread::id> callers;  // guarded by mutex, as are the next two
    bool removed = false;
    NotificationCenter::Callback callback;  // changed only once nobody is in it
};

struct ObserverToken::Table {
    Mutex mutex;
    std::vector<std::shared_ptr<Observer>> observers LORVALE_GUARDED_BY(mutex);
};

ObserverToken& ObserverToken::operator=(ObserverToken&& other) noexcept {
    if (this == &other) return *this;
    reset();
    _observer = std::move(other._observer);
    _table = std::move(other._table);
    return *this;
}

void ObserverToken::reset() {
    const auto observer = std::exchange(_observer, nullptr);
    if (observer == nullptr) return;
    if (const auto table = _table.lock()) {
        const MutexLock lock(table->mutex);
        std::erase(table->observers, observer);
    }
    observer->remove();
}

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter& instance =
        *new NotificationCenter;  // never destroyed: late threads may still post
    return instance;
}

NotificationCenter::NotificationCenter() : _table(std::make_shared<ObserverToken::Table>()) {}
NotificationCenter::~NotificationCenter() = default;

ObserverToken NotificationCenter::addObserver(Callback callback, std::string_view name,
                                              const std::shared_ptr<const void>& object) {
    ObserverToken token;
    token._observer = std::make_shared<ObserverToken::Observer>(std::move(callback), name, object);
    token._table = _table;
    const MutexLock lock(_table->mutex);
    _table->observers.push_back(token._observer);
    return token;
}

void NotificationCenter::postNotification(const Notification& notification) {
    std::vector<std::shared_ptr<ObserverToken::Observer>> wanting;
    {
        const MutexLock lock(_table->mutex);
        for (const auto& observer : _table->observers)
            if (observer->wants(notification)) wanting.push_back(observer);
    }
    for (const auto& observer : wanting) observer->call(notification);
}

void NotificationCenter::postNotification(std::string_view name, std::shared_ptr<const void> object,
                                          Notification::UserInfo userInfo) {
    postNotification(Notification{std::string(name), std::move(object), std::move(userInfo)});
}

}  // namespace lorvale
