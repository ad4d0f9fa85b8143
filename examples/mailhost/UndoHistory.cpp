#include "UndoHistory.h"

#include <charconv>
#include <string>

#include "lorvale/imap.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

using lorvale::MessageStore;

constexpr std::string_view kKey = "MailhostDeletions";  // "3,5;7": first 3 and 5, then 7

bool isOnServer(const MessageStore& store) {
    return dynamic_cast<const lorvale::IMAPStore*>(&store) != nullptr;
}

/// What stands in front of the groups: UIDs hold as long as the UIDVALIDITY.
std::string prefixOf(MessageStore& store) {
    return isOnServer(store) ? store.userInfo()["UIDVALIDITY"].string() + "/" : std::string();
}

std::string groupsOf(MessageStore& store) {
    const auto kept = store.userInfo()[kKey].string();
    const auto prefix = prefixOf(store);
    return kept.starts_with(prefix) ? kept.substr(prefix.size()) : std::string();
}

void setGroups(MessageStore& store, const std::string& groups) {
    store.userInfo().set(kKey, groups.empty() ? groups : prefixOf(store) + groups);
}

std::string nameOf(MessageStore& store, lorvale::Message& message) {
    return isOnServer(store) ? message.messageID() : std::to_string(store.numberOfMessage(message));
}

std::shared_ptr<lorvale::Message> messageNamed(MessageStore& store, std::string_view name) {
    if (isOnServer(store)) return store.messageForMessageID(name);
    std::size_t number = 0;
    std::from_chars(name.data(), name.data() + name.size(), number);
    return number > 0 && number <= store.totalCount() ? store.allMessages()[number - 1] : nullptr;
}

}  // namespace

void noteDeletion(MessageStore& store, const lorvale::MessageList& messages) {
    if (messages.empty()) return;
    auto groups = groupsOf(store);
    for (char before = ';'; const auto& message : messages) {
        if (!groups.empty()) groups += before;
        groups += nameOf(store, *message);
        before = ',';
    }
    setGroups(store, groups);
}

std::optional<lorvale::MessageList> takeLastDeletion(MessageStore& store) {
    for (auto groups = groupsOf(store); !groups.empty();) {
        const auto last = groups.rfind(';');
        std::vector<std::shared_ptr<lorvale::Message>> messages;
        for (const auto name :
             lorvale::split(std::string_view(groups).substr(last == groups.npos ? 0 : last + 1), ','))
            if (auto message = messageNamed(store, name)) messages.push_back(std::move(message));
        groups.erase(last == groups.npos ? 0 : last);
        setGroups(store, groups);
        if (!messages.empty()) return lorvale::MessageList(std::move(messages));
    }
    return std::nullopt;
}

void forgetDeletions(MessageStore& store) {
    setGroups(store, {});
}

lorvale::MessageList notYetDeleted(const lorvale::MessageList& messages) {
    std::vector<std::shared_ptr<lorvale::Message>> fresh;
    for (const auto& message : messages)
        if (!message->currentFlags()->isDeleted()) fresh.push_back(message);
    return lorvale::MessageList(std::move(fresh));
}

}  // namespace mailhost
