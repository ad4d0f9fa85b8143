#include "lorvale/store/mailbox_index.h"

#include <utility>

#include "lorvale/message.h"
#include "lorvale/store/message_store.h"
#include "mail/stores/RegisteredMaker.h"

namespace lorvale {

MailboxIndex::Maker MailboxIndex::registerMaker(Maker make) {
    return RegisteredMaker<MailboxIndex>::set(std::move(make));
}

std::shared_ptr<MailboxIndex> MailboxIndex::indexForStore(const std::shared_ptr<MessageStore>& store) {
    Message::initialize();
    return RegisteredMaker<MailboxIndex>::make(store);
}

MailboxIndex::~MailboxIndex() = default;

void MailboxIndex::indexOnly(std::function<bool(const Message&)>) {}

void MailboxIndex::forgetAll() {}

}  // namespace lorvale
