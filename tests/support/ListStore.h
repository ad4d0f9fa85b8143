#pragma once
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lorvale/message.h"
#include "lorvale/store.h"
#include "mail/model/HeaderDecoding.h"

namespace lorvale::testing {

/// A message that stands in a program.
class ListedMessage : public Message {
public:
    explicit ListedMessage(std::string text, std::uint32_t flags = 0, std::uint32_t messageSize = 0)
        : header(std::move(text)), bits(flags), size(messageSize) {}
    std::uint32_t messageSize() const override { return size; }

    const std::string header;
    std::uint32_t bits;
    const std::uint32_t size;
};

/// A whole store over a list in memory.
class ListStore : public MessageStore {
public:
    static std::shared_ptr<ListStore> initWithPath(std::string_view path) {
        return openStore<ListStore>(path, false, false, nullptr);
    }
    using MessageStore::_buildUnreadList;
    void fill(MessageList messages) {
        list = std::move(messages);
        rebuildMessageLists();
    }
    std::string className() const override { return "ListStore"; }
    void _resetAllMessages() override { setAllMessages(list); }
    std::shared_ptr<MessageFlags> flagsForMessage(Message& message) override {
        return std::make_shared<MessageFlags>(static_cast<ListedMessage&>(message).bits);
    }
    using MessageStore::setFlags;
    void setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                  const MessageList& forMessages) override {
        for (const auto key : havingKeys) keysSet.emplace_back(key);
        for (const auto& message : forMessages) {
            const auto own = message->messageFlags();
            for (const auto key : havingKeys) {
                if (key == MessageIsUnread) own->setRead(flags.isRead());
                if (key == MessageIsDeleted) own->setDeleted(flags.isDeleted());
                if (key == MessageWasRepliedTo) own->setRepliedTo(flags.wasRepliedTo());
                if (key == MessagePriorityLevel) own->setPriority(flags.priority());
            }
        }
    }
    CachedHeaders cachedHeadersForMessage(Message& message) override {
        return cachedHeadersInBlock(static_cast<ListedMessage&>(message).header);
    }
    std::optional<Data> allHeadersForMessage(Message& message) override {
        ++headerReads;
        return Data::copyOf(static_cast<ListedMessage&>(message).header);
    }

    MessageList list;
    std::vector<std::string> keysSet;
    std::atomic<int> headerReads = 0;
};

inline std::shared_ptr<Message> listed(std::string header, std::uint32_t flags = 0, std::uint32_t size = 0) {
    return std::make_shared<ListedMessage>(std::move(header), flags, size);
}

}  // namespace lorvale::testing
