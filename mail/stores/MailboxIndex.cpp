#include "lorvale/store/mailbox_index.h"

#include <utility>

#include "lorvale/store/message_store.h"
#include "mail/stores/RegisteredMaker.h"

namespace lorvale {

namespace {

RegisteredMaker<MailboxIndex::Maker>& maker() {
    static auto& maker = *new RegisteredMaker<MailboxIndex::Maker>;  // stores may outlive the end of main
    return maker;
}

}  // namespace

void MailboxIndex::registerMaker(Maker make) {
    maker().set(std::move(make));
}

std::shared_ptr<MailboxIndex> MailboxIndex::indexForStore(const std::shared_ptr<MessageStore>& store) {
    const auto make = maker().get();
    return make ? make(store) : nullptr;
}

MailboxIndex::~MailboxIndex() = default;

}  // namespace lorvale
