#pragma once
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/platform/notification.h"
#include "lorvale/store/message_store.h"

namespace lorvale {

class MessageRouter;

// Notifications, without an object.  Posted in the main thread.
/// The first routing of a quiet program begins.
inline constexpr std::string_view SMFetchStoreFetching = "SMFetchStoreFetching";
/// The last one that was under way has ended.
inline constexpr std::string_view FetchStoreRoutingDone = "FetchStoreRoutingDone";

/// A mailbox through which messages only pass: a subclass gets them from somewhere, and routing moves them to
/// their destinations (MessageRouter) and then deletes them here.
///
/// A message is deleted here only when its destination has it for good: of what a directory mailbox takes, what
/// it names as taken; of what another store is given, all, if it posts MessageStoreAppendDone or answers true.
/// Whatever else happens, it stays and is routed the next time.  So a crash may leave a message in both places,
/// and never in none.
///
/// Routing belongs to the main thread, and goes on in its run loop where destinations take mail in the
/// background.  A destination stays open as long as that.
class LORVALE_EXPORT FetchStore : public MessageStore {
public:
    /// Notes that the destination will post MessageStoreAppendDone for what it gets from this store.
    static void addFetcher(const std::shared_ptr<FetchStore>& fetcher,
                           const std::shared_ptr<MessageStore>& forStore);
    /// A store has posted that: whoever waits for it is told.
    static void _readerFinished(const Notification& notification);

    ~FetchStore() override;
    /// Moves all messages.  Returns when that is under way; routingFinished() ends it.  Not while one is.
    virtual void routeMessages() { _routeMessages(/*inBackground=*/true); }
    /// The same, and the destinations have the messages when it returns.
    virtual void routeMessagesSynchronously() { _routeMessages(/*inBackground=*/false); }
    /// Of the last fetch, and in it the last routing: how many messages there were to route, and how many of
    /// them have gone on.
    std::size_t messagesToRoute() const { return _messagesToRoute; }
    std::size_t messagesRouted() const { return _messagesRouted; }

protected:
    FetchStore();

    /// Called once at the end of each routing, whatever became of it.
    virtual void routingFinished();
    /// A fetch begins, and may have nothing to route.
    void forgetLastRouting() { _messagesToRoute = _messagesRouted = 0; }

private:
    struct Route;
    struct Fetchers;

    static Fetchers& fetchers();
    static void finish(const std::shared_ptr<FetchStore>& fetcher, const std::shared_ptr<MessageStore>& store);

    void _routeMessages(bool inBackground);
    void makeRoutes(MessageRouter& router, const MessageList& messages);
    void startAppend(const std::shared_ptr<Route>& route, bool inBackground);
    std::shared_ptr<Route> routeTo(const MessageStore& store) const;
    void _readerFinished(const MessageStore& store);

    int numReaders = 0;  // destinations still appending
    bool allRouted = false;
    std::size_t _messagesToRoute = 0, _messagesRouted = 0;
    std::optional<std::vector<std::shared_ptr<Route>>> _messageRoutes;  // nullopt: no routing runs
};

}  // namespace lorvale
