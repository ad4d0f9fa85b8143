#include "lorvale/message.h"

#include <mutex>
#include <utility>

#include "lorvale/platform/log.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/values/format.h"
#include "mail/model/DataStoreHook.h"
#include "mail/model/RegisteredClass.h"

namespace lorvale {

void Message::initialize() {
    // A class that registers itself through a public operation comes by here again.
    thread_local bool isRegistering = false;
    if (std::exchange(isRegistering, true)) return;
    static std::once_flag once;
    std::call_once(once, RegisteredClass::touchAll);
    isRegistering = false;
}

std::shared_ptr<Message> Message::messageWithData(const Data& data) {
    initialize();
    const auto make = dataStoreMaker();
    auto store = make != nullptr ? make(data) : nullptr;
    if (!store) {
        log("No store for messages in memory");
        return nullptr;
    }
    // The deleter carries the store, so that only such messages pay for it.
    std::shared_ptr<Message> message(new Message, [store](Message* gone) mutable {
        delete gone;
        store.reset();
    });
    message->setMessageStore(store);
    return message;
}

std::shared_ptr<Message> Message::emptyMessageWithBodyClass(const MessageBodyClass& bodyClass) {
    initialize();
    auto message = std::make_shared<Message>();
    auto headers = MessageHeaders::headersForMessage(message);
    headers->setAllHeaders(HeaderDictionary(), HeaderOrder());
    headers->setCachedHeaders(CachedHeaders());
    message->setHeaders(std::move(headers));
    auto body = bodyClass.make();
    if (body) body->setMessage(message);
    message->setMessageBody(std::move(body));
    return message;
}

void Message::setUserAgent(UserAgent* agent) {
    setCurrentUserAgent(agent);
}

UserAgent* Message::userAgent() {
    return currentUserAgent();
}

std::string_view Message::frameworkVersion() {
    return "106";
}

std::string Message::verboseVersion() {
    return formatText("Orrin Lorvale v%s", frameworkVersion());
}

Message::Message() = default;
Message::~Message() = default;

std::shared_ptr<MessageSource> Message::messageSource() const {
    const SmallMutexLock lock(_mutex);
    return _source.lock();
}

std::shared_ptr<MessageStore> Message::messageStore() const {
    const auto source = messageSource();
    return source ? source->messageStore() : nullptr;
}

void Message::setMessageStore(const std::shared_ptr<MessageSource>& store) {
    std::weak_ptr<MessageSource> source = store;
    const SmallMutexLock lock(_mutex);
    _source.swap(source);
}

std::string Message::messageID() {
    const auto source = messageSource();
    return source ? source->messageIDForMessage(*this) : headers()->messageID();
}

void Message::noteMissing(MessagePart part, bool missing) {
    const auto bit = static_cast<std::uint8_t>(part);
    if (missing) {
        _missing.fetch_or(bit);
    } else {
        _missing.fetch_and(static_cast<std::uint8_t>(~bit));
    }
}

// Each part is made without the lock, since that may read; then the first one in is everybody's.  What a setter
// replaces goes after the lock, for its destructor may do anything.

CachedHeaders Message::keptHeaders() const {
    const SmallMutexLock lock(_mutex);
    const auto* const kept = std::get_if<CachedHeaders>(&_headers);
    return kept != nullptr ? *kept : CachedHeaders();
}

std::shared_ptr<MessageHeaders> Message::headers() {
    if (auto held = parts().headers) return held;
    const auto kept = keptHeaders();
    auto made = MessageHeaders::headersForMessage(weak_from_this().lock());
    if (!kept.empty()) made->setCachedHeaders(kept);
    const SmallMutexLock lock(_mutex);
    const auto* const held = std::get_if<std::shared_ptr<MessageHeaders>>(&_headers);
    if (held != nullptr && *held) return *held;
    _headers = made;
    return made;
}

void Message::setHeaders(std::shared_ptr<MessageHeaders> headers) {
    decltype(_headers) next(std::move(headers));
    const SmallMutexLock lock(_mutex);
    _headers.swap(next);
}

/// Where the source can give them again, and no one else has them.
void Message::dropHeaders() {
    const auto source = messageSource();
    if (!source || parts().headers == nullptr) return;
    const auto atHand = source->keepsCachedHeaders()
                            ? source->cachedHeadersForMessage(*this).withLowerCaseKeys()
                            : CachedHeaders();
    decltype(_headers) next;
    const SmallMutexLock lock(_mutex);
    const auto* const held = std::get_if<std::shared_ptr<MessageHeaders>>(&_headers);
    if (held == nullptr || *held == nullptr || held->use_count() > 1) return;
    const auto remains = (*held)->remains();
    if (!remains) return;
    if (!remains->empty() && *remains != atHand) next = *remains;
    _headers.swap(next);
}

template <class Part>
std::shared_ptr<Part> Message::loaded(std::shared_ptr<Part> Loaded::*part) const {
    const SmallMutexLock lock(_mutex);
    return _loaded != nullptr ? _loaded.get()->*part : nullptr;
}

template <class Part>
std::shared_ptr<Part> Message::loadOnce(std::shared_ptr<Part> Loaded::*part, std::shared_ptr<Part> made) {
    if (made == nullptr) return nullptr;
    const SmallMutexLock lock(_mutex);
    if (_loaded == nullptr) _loaded = std::make_unique<Loaded>();
    auto& held = _loaded.get()->*part;
    if (held == nullptr) held.swap(made);
    return held;
}

template <class Part>
void Message::replace(std::shared_ptr<Part> Loaded::*part, std::shared_ptr<Part> with) {
    const SmallMutexLock lock(_mutex);
    if (_loaded == nullptr && with == nullptr) return;
    if (_loaded == nullptr) _loaded = std::make_unique<Loaded>();
    (_loaded.get()->*part).swap(with);
    if (_loaded->flags == nullptr && _loaded->body == nullptr) _loaded.reset();
}

std::shared_ptr<MessageFlags> Message::messageFlags() {
    return loadOnce(&Loaded::flags, currentFlags());
}

std::shared_ptr<MessageFlags> Message::currentFlags() {
    if (auto held = loaded(&Loaded::flags)) return held;
    const auto source = messageSource();
    auto flags = source ? source->flagsForMessage(*this) : nullptr;
    return flags ? flags : MessageFlags::flagsForMessage(*this);
}

void Message::setMessageFlags(std::shared_ptr<MessageFlags> flags) {
    replace(&Loaded::flags, std::move(flags));
}

std::shared_ptr<MessageBody> Message::messageBody() {
    if (auto held = loaded(&Loaded::body)) return held;
    return loadOnce(&Loaded::body, MessageBody::bodyForMessage(weak_from_this().lock()));
}

void Message::setMessageBody(std::shared_ptr<MessageBody> body) {
    replace(&Loaded::body, std::move(body));
}

Message::Parts Message::parts() const {
    const SmallMutexLock lock(_mutex);
    const auto* const headers = std::get_if<std::shared_ptr<MessageHeaders>>(&_headers);
    return {headers != nullptr ? *headers : nullptr, _loaded != nullptr ? _loaded->body : nullptr};
}

std::optional<Data> Message::encodedBody() {
    if (const auto body = messageBody()) return body->encodedBody();
    return readBody();
}

std::optional<Data> Message::readBody() {
    const auto source = messageSource();
    auto bytes = source ? source->bodyForMessage(*this) : std::nullopt;
    noteMissing(MessagePart::body, !bytes);
    return bytes;
}

std::optional<Data> Message::messageData() {
    const auto body = encodedBody();  // first: encoding a text tells the headers what the bytes are
    const auto head = headers()->encodedHeaders();
    if (!head || !body) return head;
    ByteBuffer bytes(head->size() + body->size());
    bytes.append(*head);
    bytes.append(*body);
    return bytes.data();
}

std::uint32_t Message::messageSize() const {
    return 0;
}

std::optional<std::string> Message::messageTypeImageName() const {
    return std::nullopt;
}

void Message::flushCachedData() {
    {
        const auto [headers, body] = parts();
        if (headers) headers->flushCachedData();
        if (body) body->flushCachedData();
    }
    dropHeaders();
}

std::size_t Message::cachedDataSize() const {
    const auto [headers, body] = parts();
    const auto ofHeaders = headers ? headers->cachedDataSize() : 10 * keptHeaders().size();
    return ofHeaders + (body ? body->cachedDataSize() : 0);
}

std::string Message::description() {
    auto [headers, body] = parts();
    if (!headers && !keptHeaders().empty()) headers = this->headers();
    auto text = headers ? formatText("To: %@\nFrom: %@\nSubject: %@\n", headers->firstTextForKey("to"),
                                     headers->firstTextForKey("from"), headers->firstTextForKey("subject"))
                        : std::string("<headers not yet loaded> ");
    text +=
        body ? formatText("Body is of class %@\n", body->className()) : std::string("<body not yet loaded> ");
    return text;
}

}  // namespace lorvale
