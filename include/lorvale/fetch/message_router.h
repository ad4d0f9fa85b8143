#pragma once
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/export.h"

namespace lorvale {

class Message;
class MessageRouter;
class MessageStore;

/// A class of routers, as the registry knows it.
struct RouterClass {
    std::string name;
    /// How willing it is to route what the store fetched; more than MessageRouter's 0.333 to be chosen.
    std::function<float(const MessageStore& store)> willingness;
    std::function<std::unique_ptr<MessageRouter>()> make;
};

/// Decides which mailbox a fetched message goes to.  As it stands, all go to the mailbox for new mail.  A host
/// derives its own and registers it.  Routers live for one routing and belong to its thread, the main one.
class LORVALE_EXPORT MessageRouter {
public:
    /// False, and nothing changes, for a name that is registered already, or without one of the functions.  Any
    /// thread, as the next two.
    static bool registerRouterClass(RouterClass routerClass);
    static void unregisterRouterClass(std::string_view name);
    static float willingnessToRouteForStore(const MessageStore& store);
    /// A new router of the class that is most willing; of equal ones that registered first, and this one before
    /// all.  Null when that class makes none.
    [[nodiscard]] static std::unique_ptr<MessageRouter> routerForStore(const MessageStore& store);

    MessageRouter() = default;
    MessageRouter(const MessageRouter&) = delete;
    MessageRouter& operator=(const MessageRouter&) = delete;
    virtual ~MessageRouter();

    /// The open store that takes the message, a directory mailbox as a rule; see FetchStore.  Null: the message
    /// stays where it is.  Here "Active.mbox" in the user's mail directory, made if it is missing.
    [[nodiscard]] virtual std::shared_ptr<MessageStore> destinationStoreForMessage(
        const std::shared_ptr<Message>& message);
    /// Whether each message is asked for.  False here: all go where the first one goes.
    [[nodiscard]] virtual bool routeMessagesSeparately() const;
};

}  // namespace lorvale
