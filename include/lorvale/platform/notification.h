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

/// Something happened to an object.  The object is compared by identity (its address; hand the same base
/// class's pointer to observers and to notifications) and held by a share while the notification is under way.
struct Notification {
    using UserInfo = std::map<std::string, std::any, std::less<>>;

    std::string name;
    std::shared_ptr<const void> object;
    UserInfo userInfo;
};

class NotificationCenter;

/// An observer stands in a centre as long as this token lives.  Destroying it is safe anywhere, also inside its
/// own callback or while another thread posts: when the destructor returns the callback will not run again, and
/// does not run in another thread either (the destructor waits for that, so the token must not go under a lock
/// that the callback takes).  It may outlive the centre.
class LORVALE_EXPORT ObserverToken {
public:
    ObserverToken() = default;
    ObserverToken(ObserverToken&&) noexcept = default;
    ObserverToken& operator=(ObserverToken&& other) noexcept;
    ~ObserverToken() { reset(); }
    void reset();
    explicit operator bool() const { return _observer != nullptr; }

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
