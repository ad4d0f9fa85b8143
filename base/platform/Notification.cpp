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

namespace {

template <class Pointer>
bool haveOneOwner(const std::shared_ptr<const void>& a, const Pointer& b) {
    return !a.owner_before(b) && !b.owner_before(a);
}

/// How many callbacks the thread is in.
thread_local int callbacksAround = 0;

}  // namespace

bool Notification::isSameObject(const std::shared_ptr<const void>& a, const std::shared_ptr<const void>& b) {
    return haveOneOwner(a, b) && (a.use_count() > 0 || a == b);
}

/// One callback, and who is in it at the moment.
struct ObserverToken::Observer {
    Observer(NotificationCenter::Callback function, std::string_view wantedName,
             const std::shared_ptr<const void>& wantedObject)
        : name(wantedName),
          address(wantedObject.get()),
          object(wantedObject),
          isOwned(wantedObject.use_count() > 0),
          callback(std::move(function)) {}

    bool wants(const Notification& notification) const {
        if (!name.empty() && name != notification.name) return false;
        if (isOwned) return haveOneOwner(notification.object, object);
        return address == nullptr ||
               (notification.object.use_count() == 0 && notification.object.get() == address);
    }

    void call(const Notification& notification) {
        {
            const MutexLock lock(mutex);
            if (removed) return;
            callers.push_back(std::this_thread::get_id());
        }
        ++callbacksAround;
        runLoggingExceptions("Notification " + notification.name, [&] { callback(notification); });
        --callbacksAround;
        NotificationCenter::Callback dropped;  // destroyed without the lock
        const MutexLock lock(mutex);
        callers.erase(std::ranges::find(callers, std::this_thread::get_id()));
        if (removed && callers.empty()) dropped.swap(callback);
        left.notify_all();
    }

    /// No thread begins the callback any more.
    void remove() {
        NotificationCenter::Callback dropped;
        const MutexLock lock(mutex);
        removed = true;
        // The function must outlive the calls that run in it; the last one drops it.
        if (callers.empty()) dropped.swap(callback);
    }

    void waitUntilLeft() LORVALE_NO_THREAD_SAFETY_ANALYSIS {  // the analysis does not know a wait
        std::unique_lock lock(mutex.native());
        while (!callers.empty()) left.wait(lock);
    }

    const std::string name;
    const void* const address;
    const std::weak_ptr<const void> object;
    const bool isOwned;

    Mutex mutex;  // never held while the callback runs
    std::condition_variable left;
    std::vector<std::thread::id> callers LORVALE_GUARDED_BY(mutex);
    bool removed LORVALE_GUARDED_BY(mutex) = false;
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

void ObserverToken::removeAndWait() {
    const auto observer = _observer;
    reset();
    if (observer != nullptr && callbacksAround == 0) observer->waitUntilLeft();
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

ObserverToken NotificationCenter::addObserver(std::weak_ptr<const void> observer, Callback callback,
                                              std::string_view name,
                                              const std::shared_ptr<const void>& object) {
    return addObserver(
        [observer = std::move(observer), callback = std::move(callback)](const Notification& notification) {
            if (const auto held = observer.lock()) callback(notification);
        },
        name, object);
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
