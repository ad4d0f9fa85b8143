#include <algorithm>
#include <map>

#include "base/files/PathUtils.h"
#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/paths.h"
#include "mail/model/AttachmentPaths.h"
#include "mail/model/ExceptionReason.h"

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

struct ClassesByEncoding {
    Mutex mutex;
    std::map<std::string, MessageBodyClass, std::less<>> classes LORVALE_GUARDED_BY(mutex);
};

ClassesByEncoding& classesByEncoding() {
    static ClassesByEncoding classes;
    return classes;
}

}  // namespace

WillingnessRegistry<MessageBodyClass>& MessageBody::bodyClasses() {
    static WillingnessRegistry<MessageBodyClass> classes;
    return classes;
}

void MessageBody::registerMessageClass(MessageBodyClass bodyClass, std::string_view forEncoding) {
    auto& known = classesByEncoding();
    const MutexLock lock(known.mutex);
    known.classes.insert_or_assign(std::string(forEncoding), std::move(bodyClass));
}

void MessageBody::unregisterMessageClassForEncoding(std::string_view encoding) {
    auto& known = classesByEncoding();
    const MutexLock lock(known.mutex);
    if (const auto found = known.classes.find(encoding); found != known.classes.end())
        known.classes.erase(found);
}

std::optional<MessageBodyClass> MessageBody::bodyClassForMessageEncoding(std::string_view encoding) {
    Message::initialize();
    auto& known = classesByEncoding();
    const MutexLock lock(known.mutex);
    const auto found = known.classes.find(encoding);
    return found == known.classes.end() ? std::nullopt : std::optional(found->second);
}

int MessageBody::lineLength() {
    constexpr int kUsual = 76, kMost = 1'000'000;
    const auto wanted = Defaults::sharedInstance().integerForKey("LineLength");
    return wanted < 1 ? kUsual : static_cast<int>(std::min<std::int64_t>(wanted, kMost));
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

/// Null when the source has the bytes.
std::shared_ptr<const AttributedText> MessageBody::textToEncode() const {
    const auto owner = message();
    const bool hasSource = owner && owner->messageSource();
    const SmallMutexLock lock(_mutex);
    return hasSource && _isOfSource ? nullptr : _decoded;
}

std::optional<Data> MessageBody::encodedBody() {
    if (auto held = _encodedBody()) return held;
    if (const auto text = textToEncode()) return keep(encodedForm(*text), false);
    const auto owner = message();
    return keep(owner ? owner->readBody() : std::nullopt, true);
}

std::optional<Data> MessageBody::encodedForm(const AttributedText& text) {
    try {
        post(MessageBodyWillBeEncodedNotification, MessageDecodedBodyKey, text);
        auto made = encodeBody();
        if (made) post(MessageBodyWasEncodedNotification, MessageEncodedBodyKey, *made);
        return made;
    } catch (const std::exception& exception) {
        log("Exception raised during message encoding");
        log("%@", reasonOf(exception));
        return std::nullopt;
    }
}

/// The first ones in are everybody's.
std::optional<Data> MessageBody::keep(std::optional<Data> bytes, bool areOfSource) {
    const SmallMutexLock lock(_mutex);
    if (_encoded || !bytes) return _encoded;
    _encoded = std::move(bytes);
    _isOfSource = areOfSource;
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
    _isOfSource = false;
    _decoded.reset();
}

void MessageBody::setDecodedBody(std::optional<AttributedText> text) {
    auto decoded = text ? std::make_shared<const AttributedText>(*std::move(text)) : nullptr;
    const SmallMutexLock lock(_mutex);
    _decoded.swap(decoded);
    _isOfSource = false;
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
