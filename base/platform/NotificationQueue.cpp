#include <deque>
#include <utility>

#include "lorvale/platform/notification.h"
#include "lorvale/platform/run_loop.h"

namespace lorvale {

namespace {

bool isSame(const Notification& a, const Notification& b, Coalescing coalescing) {
    switch (coalescing) {
        case Coalescing::none:
            return false;
        case Coalescing::onName:
            return a.name == b.name;
        case Coalescing::onSender:
            return Notification::isSameObject(a.object, b.object);
        case Coalescing::onNameAndSender:
            return a.name == b.name && Notification::isSameObject(a.object, b.object);
    }
    return false;
}

}  // namespace

/// What waits, one line a style.  Owned by its queue; the calls on the run loop hold it weakly.
class NotificationQueue::Implementation : public std::enable_shared_from_this<Implementation> {
public:
    void enqueue(Notification notification, PostingStyle style) {
        // Made for what waits alone: what is posted at once needs no run loop, and so no descriptor.
        if (!_loop) _loop = RunLoop::current();
        auto& line = style == PostingStyle::asap ? _asap : _idle;
        line.waiting.push_back(std::move(notification));
        if (std::exchange(line.isScheduled, true)) return;
        const auto deliverLater = [weak = weak_from_this(), &line] {
            if (const auto self = weak.lock()) self->deliver(line);
        };
        if (style == PostingStyle::asap)
            _loop->perform(deliverLater);
        else
            _loop->performWhenIdle(deliverLater);
    }

    void dequeue(const Notification& notification, Coalescing coalescing) {
        for (auto* const line : {&_asap, &_idle})
            std::erase_if(line->waiting, [&](const Notification& waiting) {
                return isSame(waiting, notification, coalescing);
            });
    }

private:
    struct Line {
        std::deque<Notification> waiting;
        bool isScheduled = false;
    };

    void deliver(Line& line) {
        line.isScheduled = false;
        // One at a time, so that an observer can still take back what has not been told.  What observers add
        // has a call of its own, and waits for it.
        for (auto left = line.waiting.size(); left > 0 && !line.waiting.empty(); --left) {
            const auto notification = std::move(line.waiting.front());
            line.waiting.pop_front();
            NotificationCenter::defaultCenter().postNotification(notification);
        }
    }

    std::shared_ptr<RunLoop> _loop;  // of this thread; null until something waits
    Line _asap, _idle;
};

NotificationQueue& NotificationQueue::defaultQueue() {
    thread_local NotificationQueue queue;
    return queue;
}

NotificationQueue::NotificationQueue() : _implementation(std::make_shared<Implementation>()) {}
NotificationQueue::~NotificationQueue() = default;

void NotificationQueue::enqueueNotification(Notification notification, PostingStyle style,
                                            Coalescing coalescing) {
    _implementation->dequeue(notification, coalescing);
    if (style == PostingStyle::now)
        NotificationCenter::defaultCenter().postNotification(notification);
    else
        _implementation->enqueue(std::move(notification), style);
}

void NotificationQueue::dequeueNotificationsMatching(const Notification& notification, Coalescing coalescing) {
    _implementation->dequeue(notification, coalescing);
}

}  // namespace lorvale
