#include "lorvale/fetch/fetch_store.h"

#include <algorithm>
#include <utility>

#include "lorvale/fetch/message_router.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/thread.h"
#include "lorvale/store/constants.h"
#include "lorvale/store/tarn_mbox.h"

namespace lorvale {

/// What goes to one destination.
struct FetchStore::Route {
    std::shared_ptr<MessageStore> store;
    std::vector<std::shared_ptr<Message>> messages;
    MessageList taken = {};   // of these, what the destination has for good
    bool isAnswered = false;  // the destination has said which
    bool isFinished = false;  // it no longer counts among the readers
};

/// Who waits for which destination, process-wide.
struct FetchStore::Fetchers {
    struct Waiting {
        std::shared_ptr<MessageStore> store;
        std::vector<std::shared_ptr<FetchStore>> fetchers;
        ObserverToken observer;
    };
    Mutex mutex;
    std::vector<Waiting> all LORVALE_GUARDED_BY(mutex);
};

FetchStore::Fetchers& FetchStore::fetchers() {
    static auto& table = *new Fetchers;  // never destroyed: late threads may still post
    return table;
}

void FetchStore::addFetcher(const std::shared_ptr<FetchStore>& fetcher,
                            const std::shared_ptr<MessageStore>& forStore) {
    auto& table = fetchers();
    bool isFirst = false;
    {
        const MutexLock lock(table.mutex);
        isFirst = table.all.empty();
        auto found = std::ranges::find(table.all, forStore, &Fetchers::Waiting::store);
        if (found == table.all.end()) {
            auto observer = NotificationCenter::defaultCenter().addObserver(
                [](const Notification& notification) { _readerFinished(notification); }, MessageStoreAppendDone,
                forStore);
            table.all.push_back({forStore, {}, std::move(observer)});
            found = std::prev(table.all.end());
        }
        found->fetchers.push_back(fetcher);
    }
    if (isFirst) NotificationCenter::defaultCenter().postNotification(SMFetchStoreFetching);
}

void FetchStore::_readerFinished(const Notification& notification) {
    auto& table = fetchers();
    Fetchers::Waiting posted;
    {
        const MutexLock lock(table.mutex);
        for (const auto& waiting : table.all)
            if (Notification::isSameObject(waiting.store, notification.object))
                posted = {waiting.store, waiting.fetchers, {}};
    }
    for (const auto& fetcher : posted.fetchers) {
        // Any append to that mailbox ends with this notification; what this one gave is perhaps still on its
        // way.
        const auto route = fetcher->routeTo(*posted.store);
        if (route == nullptr || route->isAnswered) finish(fetcher, posted.store);
    }
}

/// A destination is done with what a fetch store gave it.
void FetchStore::finish(const std::shared_ptr<FetchStore>& fetcher,
                        const std::shared_ptr<MessageStore>& store) {
    auto& table = fetchers();
    const auto entry = [&]() LORVALE_REQUIRES(table.mutex) {
        return std::ranges::find(table.all, store, &Fetchers::Waiting::store);
    };
    {
        const MutexLock lock(table.mutex);
        const auto waiting = entry();
        if (waiting == table.all.end()) return;
        const auto place = std::ranges::find(waiting->fetchers, fetcher);
        if (place == waiting->fetchers.end()) return;
        waiting->fetchers.erase(place);
    }
    fetcher->_readerFinished(*store);
    Fetchers::Waiting gone;  // given up without the lock
    {
        const MutexLock lock(table.mutex);
        const auto waiting = entry();
        if (waiting == table.all.end() || !waiting->fetchers.empty()) return;
        gone = std::exchange(*waiting, {});
        table.all.erase(waiting);
        if (!table.all.empty()) return;
    }
    NotificationCenter::defaultCenter().postNotification(FetchStoreRoutingDone);
}

FetchStore::FetchStore() = default;
FetchStore::~FetchStore() = default;

std::shared_ptr<FetchStore::Route> FetchStore::routeTo(const MessageStore& store) const {
    if (!_messageRoutes) return nullptr;
    const auto found =
        std::ranges::find_if(*_messageRoutes, [&](const auto& route) { return route->store.get() == &store; });
    return found == _messageRoutes->end() ? nullptr : *found;
}

void FetchStore::_routeMessages(bool inBackground) {
    if (_messageRoutes) throw InternalInconsistencyException("_messageRoutes being leaked");
    const auto self = std::static_pointer_cast<FetchStore>(shared_from_this());
    numReaders = 0;
    allRouted = false;
    forgetLastRouting();
    std::vector<std::shared_ptr<Route>> routes;
    const bool made = runLoggingExceptions("Routing", [&] {
        const auto router = MessageRouter::routerForStore(*this);
        const auto messages = allMessages();
        _messagesToRoute = messages.size();
        if (router == nullptr || messages.empty()) return;
        _messageRoutes.emplace();
        makeRoutes(*router, messages);
        routes = *_messageRoutes;
    });
    if (!made || routes.empty()) return routingFinished();
    numReaders = static_cast<int>(routes.size());
    allRouted = true;
    for (const auto& route : routes) {
        addFetcher(self, route->store);
        startAppend(route, inBackground);
    }
}

/// Finds out where each message goes.
void FetchStore::makeRoutes(MessageRouter& router, const MessageList& messages) {
    if (!router.routeMessagesSeparately()) {
        auto store = router.destinationStoreForMessage(messages.front());
        if (store == nullptr) return log("Couldn't open destination store for fetch");
        _messageRoutes->push_back(
            std::make_shared<Route>(Route{std::move(store), {messages.begin(), messages.end()}}));
        return;
    }
    for (const auto& message : messages) {
        std::shared_ptr<MessageStore> store;
        try {
            store = router.destinationStoreForMessage(message);
            if (store == nullptr) log("A fetched message has no destination, and stays in %@", storePath());
        } catch (const NamedException& exception) {
            log("Exception raised during message routing: %@", exception.reason());
        } catch (const std::exception& exception) {
            log("Exception raised during message routing: %@", exception.what());
        }
        message->flushCachedData();  // what the router has looked at
        if (store == nullptr) continue;
        auto route = routeTo(*store);
        if (route == nullptr)
            route = _messageRoutes->emplace_back(std::make_shared<Route>(Route{std::move(store), {}}));
        route->messages.push_back(message);
    }
}

void FetchStore::startAppend(const std::shared_ptr<Route>& route, bool inBackground) {
    const auto self = std::static_pointer_cast<FetchStore>(shared_from_this());
    // Routes live as long as the routing, and hold their destinations open.
    const auto finishRoute = [self, weak = std::weak_ptr(route)] {
        if (const auto live = weak.lock(); live != nullptr && !live->isFinished) finish(self, live->store);
    };
    const MessageList messages(route->messages);
    const auto taken = [finishRoute, inBackground, weak = std::weak_ptr(route)](const MessageList& list) {
        const auto live = weak.lock();
        if (live == nullptr) return;
        live->taken = list;
        live->isAnswered = true;
        // As a rule its notification ends this routing before that; without one this does.
        if (inBackground) RunLoop::current()->perform(finishRoute);
    };
    const auto mailbox = std::dynamic_pointer_cast<TarnMbox>(route->store);
    const bool done = runLoggingExceptions("Routing", [&] {
        if (mailbox != nullptr && inBackground)
            return mailbox->asyncAppendMessages(messages, /*setUnread=*/true, taken);
        if (mailbox != nullptr) {
            mailbox->syncAppendMessages(messages, /*setUnread=*/true, taken);
        } else {
            // It can only say whether it has them all.
            route->taken = messages;
            route->isAnswered = true;
            if (!route->store->syncAppendMessages(messages, /*setUnread=*/true) && !route->isFinished) {
                log("%@ did not say that it has taken fetched mail, which stays in %@",
                    route->store->storePath(), storePath());
                route->taken = {};
            }
        }
        finishRoute();
    });
    if (!done) finishRoute();
}

void FetchStore::_readerFinished(const MessageStore& store) {
    const auto route = routeTo(store);
    if (route == nullptr || std::exchange(route->isFinished, true) || --numReaders > 0 || !allRouted) return;
    std::vector<std::shared_ptr<Message>> taken;
    for (const auto& each : *_messageRoutes) taken.insert(taken.end(), each->taken.begin(), each->taken.end());
    runLoggingExceptions("Routing", [&] {
        if (taken.empty()) return;
        deleteMessages(taken);
        _messagesRouted = taken.size();
    });
    runLoggingExceptions("Routing", [this] { routingFinished(); });
}

void FetchStore::routingFinished() {
    _messageRoutes.reset();
}

}  // namespace lorvale
