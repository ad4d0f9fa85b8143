#include "lorvale/fetch/message_router.h"

#include "lorvale/defaults.h"
#include "lorvale/message/willingness_registry.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store.h"

namespace lorvale {

namespace {

WillingnessRegistry<RouterClass>& routerClasses() {
    static auto& registry = *[] {
        auto* const made = new WillingnessRegistry<RouterClass>;  // never destroyed: late threads may still ask
        made->registerClass({"MessageRouter", MessageRouter::willingnessToRouteForStore,
                             [] { return std::make_unique<MessageRouter>(); }});
        return made;
    }();
    return registry;
}

}  // namespace

bool MessageRouter::registerRouterClass(RouterClass routerClass) {
    if (!routerClass.willingness || !routerClass.make) return false;
    return routerClasses().registerClass(std::move(routerClass));
}

void MessageRouter::unregisterRouterClass(std::string_view name) {
    routerClasses().unregisterClass(name);
}

float MessageRouter::willingnessToRouteForStore(const MessageStore&) {
    return 0.333F;
}

std::unique_ptr<MessageRouter> MessageRouter::routerForStore(const MessageStore& store) {
    // This class is the first choice also where somebody has taken it out of the registry.
    const auto chosen = routerClasses().mostWilling(store);
    if (!chosen || !(chosen->willingness(store) > willingnessToRouteForStore(store)))
        return std::make_unique<MessageRouter>();
    return chosen->make();
}

MessageRouter::~MessageRouter() = default;

std::shared_ptr<MessageStore> MessageRouter::destinationStoreForMessage(const std::shared_ptr<Message>&) {
    const auto path = standardizePath(Defaults::sharedInstance().defaultMailDirectory() + "/Active.mbox");
    return MessageStore::storeForPath(path, /*create=*/true, /*readOnly=*/false);
}

bool MessageRouter::routeMessagesSeparately() const {
    return false;
}

}  // namespace lorvale
