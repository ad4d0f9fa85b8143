#pragma once
#include <any>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/export.h"

namespace lorvale {

/// Something happened to an object.  The object is held by a share while the notification is under way.  It is
/// known by who owns it, not by its address: a pointer to any base class or member of it will do, and an object
/// that died is never taken for another one in its place.
struct LORVALE_EXPORT Notification {
    using UserInfo = std::map<std::string, std::any, std::less<>>;

    std::string name;
    std::shared_ptr<const void> object;
    UserInfo userInfo;

    /// Whether two shares are of one object.  Of pointers that nobody owns, whether they are the same.
    [[nodiscard]] static bool isSameObject(const std::shared_ptr<const void>& a,
                                           const std::shared_ptr<const void>& b);
};

class NotificationCenter;

/// An observer stands in a centre as long as this token lives.  Dropping it is safe anywhere: inside any
/// callback, under any lock, while another thread posts.  It never waits: afterwards the callback is not begun
/// any more, but another thread may still be in it.  Who cannot have that adds the observer with the object
/// that the callback uses, which is then held while it runs, or calls removeAndWait().  May outlive the centre.
class LORVALE_EXPORT ObserverToken {
public:
    ObserverToken() = default;
    ObserverToken(ObserverToken&&) noexcept = default;
    ObserverToken& operator=(ObserverToken&& other) noexcept;
    ~ObserverToken() { reset(); }
    void reset();
    /// Returns when no other thread is in the callback either.  Not under a lock that the callback takes.  In a
    /// callback of any observer it does not wait, since two of them could wait for each other.
    void removeAndWait();
    [[nodiscard]] explicit operator bool() const { return _observer != nullptr; }

private:
    friend class NotificationCenter;
    struct Observer;
    struct Table;
    std::shared_ptr<Observer> _observer;
    std::weak_ptr<Table> _table;
};

/// Tells observers what happens.  Callbacks run in the posting thread, in the order of adding, under no lock.
/// An exception that leaves one is logged; the others still run.  Any thread.
class LORVALE_EXPORT NotificationCenter {
public:
    using Callback = std::function<void(const Notification&)>;

    static NotificationCenter& defaultCenter();
    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// An empty name means any name, a null object any object.  The object is not kept alive.
    [[nodiscard]] ObserverToken addObserver(Callback callback, std::string_view name = {},
                                            const std::shared_ptr<const void>& object = nullptr);
    /// For a callback that uses `observer`, which is held while it runs; once the observer is gone it does not
    /// run any more.  The observer's last share may so be dropped in the thread that posts.
    [[nodiscard]] ObserverToken addObserver(std::weak_ptr<const void> observer, Callback callback,
                                            std::string_view name = {},
                                            const std::shared_ptr<const void>& object = nullptr);
    void postNotification(const Notification& notification);
    void postNotification(std::string_view name, std::shared_ptr<const void> object = nullptr,
                          Notification::UserInfo userInfo = {});

private:
    std::shared_ptr<ObserverToken::Table> _table;
};

enum class PostingStyle {
    now,       ///< posted before the call returns
    asap,      ///< posted when the run loop next turns
    whenIdle,  ///< posted when the run loop has nothing else to do
};

/// What makes a notification in the queue the same as a new one, so that one of them is enough.
enum class Coalescing { none, onName, onSender, onNameAndSender };

/// Holds notifications of one thread back until its run loop turns or idles, so that a burst of changes is told
/// once.  Posts to the default centre.  Belongs to its thread; what is left when the thread ends is dropped.
class LORVALE_EXPORT NotificationQueue {
public:
    /// The calling thread's queue.
    static NotificationQueue& defaultQueue();
    NotificationQueue();
    ~NotificationQueue();
    NotificationQueue(const NotificationQueue&) = delete;
    NotificationQueue& operator=(const NotificationQueue&) = delete;

    /// Waiting notifications that are the same give way to this one.
    void enqueueNotification(Notification notification, PostingStyle style,
                             Coalescing coalescing = Coalescing::onNameAndSender);
    void dequeueNotificationsMatching(const Notification& notification, Coalescing coalescing);

private:
    class Implementation;
    std::shared_ptr<Implementation> _implementation;
};

}  // namespace lorvale
