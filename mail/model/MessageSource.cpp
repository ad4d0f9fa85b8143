#include "lorvale/message.h"

namespace lorvale {

MessageSource::~MessageSource() = default;

std::string MessageSource::messageIDForMessage(Message& message) {
    return message.headers()->messageID();
}

std::string MessageSource::storePath() const {
    return {};
}

std::shared_ptr<MessageStore> MessageSource::messageStore() {
    return nullptr;
}

}  // namespace lorvale
