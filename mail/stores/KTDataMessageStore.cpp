#include "mail/stores/KTDataMessageStore.h"

#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "mail/model/HeaderDecoding.h"
#include "mail/stores/CachedHeaderReading.h"

namespace lorvale {

KTDataMessageStore::~KTDataMessageStore() = default;

std::shared_ptr<KTDataMessageStore> KTDataMessageStore::initWithData(Data data) {
    return std::make_shared<KTDataMessageStore>(std::move(data));
}

std::string KTDataMessageStore::storePath() const {
    return MessageBody::defaultAttachmentDirectory().value_or("");
}

std::string KTDataMessageStore::className() const {
    return "KTDataMessageStore";
}

std::shared_ptr<MessageFlags> KTDataMessageStore::flagsForMessage(Message&) {
    return std::make_shared<MessageFlags>();
}

void KTDataMessageStore::setFlags(const MessageFlags&, std::span<const std::string_view>, const MessageList&) {}

CachedHeaders KTDataMessageStore::cachedHeadersForMessage(Message& message) {
    return readCachedHeaders(message, allHeadersForMessage(message), HeaderSpelling::ofMessage);
}

std::optional<std::size_t> KTDataMessageStore::headerLength() const {
    const auto length = headerEnd(_data.view());
    if (!length) log("KTDataMessageStore: couldn't find body");
    return length;
}

std::optional<Data> KTDataMessageStore::allHeadersForMessage(Message&) {
    const auto length = headerLength();
    return length ? std::optional(_data.subdata(Range{0, *length})) : std::nullopt;
}

std::optional<Data> KTDataMessageStore::bodyForMessage(Message&) {
    const auto length = headerLength();
    return length ? std::optional(_data.subdata(Range{*length, _data.size() - *length})) : std::nullopt;
}

}  // namespace lorvale
