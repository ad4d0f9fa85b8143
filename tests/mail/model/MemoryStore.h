#pragma once
#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "lorvale/message.h"
#include "lorvale/store/message_store.h"
#include "mail/model/HeaderDecoding.h"

namespace lorvale::testing {

/// A store whose every message has the same bytes, and which counts how often it is asked.
class MemoryStore : public MessageStore {
public:
    MemoryStore(std::string_view headBytes, std::string_view bodyBytes)
        : head(Data::copyOf(headBytes)),
          body(Data::copyOf(bodyBytes)),
          cached(cachedHeadersInBlock(headBytes)) {}

    CachedHeaders cachedHeadersForMessage(Message&) override { return ++cachedAsked, cached; }
    bool readsCachedHeaders() const override { return readsBlock; }
    std::optional<Data> allHeadersForMessage(Message&) override { return ++headAsked, head; }
    std::optional<Data> bodyForMessage(Message&) override { return ++bodyAsked, body; }
    std::shared_ptr<MessageFlags> flagsForMessage(Message&) override {
        return std::make_shared<MessageFlags>(MessageFlags::kUnread, 3);
    }

    std::optional<Data> head, body;
    CachedHeaders cached;
    bool readsBlock = false;
    std::atomic<int> cachedAsked = 0, headAsked = 0, bodyAsked = 0;
};

/// A message and the store it lives in.
struct StoredMessage {
    explicit StoredMessage(std::string_view head, std::string_view body = "body\n")
        : store(std::make_shared<MemoryStore>(head, body)), message(Message::messageInStore(store)) {}
    MessageHeaders& headers() const { return *message->headers(); }

    std::shared_ptr<MemoryStore> store;
    std::shared_ptr<Message> message;
};

}  // namespace lorvale::testing
