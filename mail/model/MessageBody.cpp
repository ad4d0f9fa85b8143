#include "base/files/PathUtils.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/paths.h"
#include "mail/model/AttachmentPaths.h"

namespace lorvale {

namespace {

struct AttachmentDirectory {
    Mutex mutex;
    std::string path LORVALE_GUARDED_BY(mutex);  // empty: not set, and not made yet
};

AttachmentDirectory& sharedDirectory() {
    static AttachmentDirectory directory;
    return directory;
}

/// In a folder of the user's own, since the temporary directory is everybody's.
std::string usualAttachmentDirectory() {
    const auto own = stringByAppendingPathComponent(temporaryDirectory(), loginName());
    return standardizePath(stringByAppendingPathComponent(own, "mail"));
}

std::string reasonOf(const std::exception& exception) {
    const auto* const named = dynamic_cast<const NamedException*>(&exception);
    return named != nullptr ? std::string(named->reason()) : exception.what();
}

}  // namespace

WillingnessRegistry<MessageBodyClass>& MessageBody::bodyClasses() {
    static WillingnessRegistry<MessageBodyClass> classes;
    return classes;
}

std::shared_ptr<MessageBody> MessageBody::bodyForMessage(const std::shared_ptr<Message>& message) {
    if (!message) return nullptr;
    Message::initialize();
    const auto best = bodyClasses().mostWilling(*message->headers());
    auto body = best ? best->make() : nullptr;
    if (body) body->setMessage(message);
    return body;
}

std::optional<std::string> MessageBody::defaultAttachmentDirectory() {
    auto& directory = sharedDirectory();
    const MutexLock lock(directory.mutex);  // also while it is made, so that it is made once
    if (!directory.path.empty()) return directory.path;
    auto path = usualAttachmentDirectory();
    if (!makePrivateDirectory(stringByDeletingLastPathComponent(path)) || !makePrivateDirectory(path)) {
        log("Could not create attachment directory %@", path);
        return std::nullopt;
    }
    directory.path = std::move(path);
    return directory.path;
}

void MessageBody::setDefaultAttachmentDirectory(std::string_view path) {
    auto& directory = sharedDirectory();
    const MutexLock lock(directory.mutex);
    directory.path = path;
}

MessageBody::~MessageBody() = default;

std::shared_ptr<Message> MessageBody::message() const {
    const SmallMutexLock lock(_mutex);
    return _message.lock();
}

void MessageBody::setMessage(const std::shared_ptr<Message>& message) {
    const SmallMutexLock lock(_mutex);
    if (_message.expired()) _message = message;
}

void MessageBody::post(std::string_view name, std::string_view key, std::any value) {
    NotificationCenter::defaultCenter().postNotification(name, weak_from_this().lock(),
                                                         {{std::string(key), std::move(value)}});
}

std::optional<Data> MessageBody::encodedBody() {
    if (auto held = _encodedBody()) return held;
    std::optional<Data> made;
    if (const auto text = _decodedBody()) {
        try {
            post(MessageBodyWillBeEncodedNotification, MessageDecodedBodyKey, *text);
            made = encodeBody();
            if (made) post(MessageBodyWasEncodedNotification, MessageEncodedBodyKey, *made);
        } catch (const std::exception& exception) {
            log("Exception raised during message encoding");
            log("%@", reasonOf(exception));
            return std::nullopt;
        }
    } else if (const auto owner = message()) {
        made = owner->readBody();
    }
    const SmallMutexLock lock(_mutex);
    if (!_encoded) _encoded = std::move(made);
    return _encoded;
}

std::shared_ptr<const AttributedText> MessageBody::decodedBody() {
    if (auto held = _decodedBody()) return held;
    const auto bytes = encodedBody();
    std::shared_ptr<const AttributedText> made;
    try {
        post(MessageBodyWillBeDecodedNotification, MessageEncodedBodyKey, bytes.value_or(Data()));
        made = decodeBody();
        if (made) post(MessageBodyWasDecodedNotification, MessageDecodedBodyKey, *made);
    } catch (const std::exception& exception) {
        log("Exception raised during message decoding");
        log("%@", reasonOf(exception));
        return nullptr;
    }
    if (!made) return nullptr;
    const SmallMutexLock lock(_mutex);
    if (!_decoded) _decoded = std::move(made);
    _encoded.reset();
    return _decoded;
}

void MessageBody::setEncodedBody(std::optional<Data> bytes) {
    const SmallMutexLock lock(_mutex);
    _encoded.swap(bytes);
    _decoded.reset();
}

void MessageBody::setDecodedBody(std::optional<AttributedText> text) {
    auto decoded = text ? std::make_shared<const AttributedText>(*std::move(text)) : nullptr;
    const SmallMutexLock lock(_mutex);
    _decoded.swap(decoded);
    _encoded.reset();
}

std::optional<std::string> MessageBody::attachmentDirectory() const {
    const SmallMutexLock lock(_mutex);
    return _attachPath;
}

void MessageBody::setAttachmentDirectory(std::optional<std::string> path) {
    const SmallMutexLock lock(_mutex);
    _attachPath.swap(path);
}

void MessageBody::flushEncodedBodyCache() {
    _setEncodedBody(std::nullopt);
}

void MessageBody::flushDecodedBodyCache() {
    _setDecodedBody(nullptr);
}

void MessageBody::flushCachedData() {
    const auto owner = message();
    if (!owner || !owner->messageSource()) return;
    _setEncodedBody(std::nullopt);
    _setDecodedBody(nullptr);
}

std::size_t MessageBody::cachedDataSize() const {
    const SmallMutexLock lock(_mutex);
    return (_encoded ? _encoded->size() : 0) + (_decoded ? _decoded->length() : 0);
}

std::string MessageBody::className() const {
    return "MessageBody";
}

std::optional<Data> MessageBody::encodeBody() {
    throw InternalInconsistencyException("encodeBody must be implemented in subclass");
}

std::shared_ptr<const AttributedText> MessageBody::decodeBody() {
    throw InternalInconsistencyException("decodeBody must be implemented in subclass");
}

std::optional<Data> MessageBody::_encodedBody() const {
    const SmallMutexLock lock(_mutex);
    return _encoded;
}

std::shared_ptr<const AttributedText> MessageBody::_decodedBody() const {
    const SmallMutexLock lock(_mutex);
    return _decoded;
}

void MessageBody::_setEncodedBody(std::optional<Data> bytes) {
    const SmallMutexLock lock(_mutex);
    _encoded.swap(bytes);
}

void MessageBody::_setDecodedBody(std::shared_ptr<const AttributedText> text) {
    const SmallMutexLock lock(_mutex);
    _decoded.swap(text);
}

}  // namespace lorvale
