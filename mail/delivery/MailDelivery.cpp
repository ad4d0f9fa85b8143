#include <algorithm>

#include "lorvale/delivery/mail_delivery.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"

namespace lorvale {

namespace {

class Registry {
public:
    static Registry& shared() {
        static Registry& instance = *new Registry;  // never destroyed: late threads may ask
        return instance;
    }
    void add(MailDeliveryClass added) {
        const MutexLock lock(_mutex);
        const bool isNew = std::ranges::find(_classes, added.name, &MailDeliveryClass::name) == _classes.end();
        if (isNew) _classes.push_back(std::move(added));
    }
    void remove(std::string_view name) {
        const MutexLock lock(_mutex);
        std::erase_if(_classes, [name](const auto& each) { return each.name == name; });
    }
    std::optional<MailDeliveryClass> last() {
        const MutexLock lock(_mutex);
        return _classes.empty() ? std::nullopt : std::optional(_classes.back());
    }

private:
    Mutex _mutex;
    std::vector<MailDeliveryClass> _classes LORVALE_GUARDED_BY(_mutex);
};

}  // namespace

void MailDelivery::registerDeliveryClass(MailDeliveryClass deliveryClass) {
    const auto name = deliveryClass.name;
    Registry::shared().add(std::move(deliveryClass));
    debugLog("using delivery class %@", name);
}

void MailDelivery::unregisterDeliveryClass(std::string_view name) {
    Registry::shared().remove(name);
    const auto inCharge = Registry::shared().last();
    debugLog("using delivery class %@", inCharge ? inCharge->name : "(null)");
}

bool MailDelivery::deliverMessage(const std::shared_ptr<Message>& message, bool askForReadReceipt,
                                  const std::vector<std::string>& privateRecipients) {
    const auto inCharge = Registry::shared().last();
    return inCharge && inCharge->deliver(message, askForReadReceipt, privateRecipients);
}

}  // namespace lorvale
