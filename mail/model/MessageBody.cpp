#include "base/files/PathUtils.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/paths.h"

namespace lorvale {

namespace {

struct AttachmentDirectory {
    Mutex mutex;
    std::string path LORVALE_GUARDED_BY(mutex);  // empty: not set, and not made yet
};

AttachmentDirectory& attachmentDirectory() {
    static AttachmentDirectory directory;
    return directory;
}

/// In a folder of the user's own, since the temporary directory is everybody's.
std::string usualAttachmentDirectory() {
    const auto own = stringByAppendingPathComponent(temporaryDirectory(), loginName());
    return standardizePath(stringByAppendingPathComponent(own, "mail"));
}

}  // namespace

WillingnessRegistry<MessageBodyClass>& MessageBody::bodyClasses() {
    static WillingnessRegistry<MessageBodyClass> classes;
    return classes;
}

std::shared_ptr<MessageBody> MessageBody::bodyForMessage(const std::shared_ptr<Message>& message) {
    std::shared_ptr<MessageBody> body;
    if (message) {
        Message::initialize();
        if (const auto best = bodyClasses().mostWilling(*message->headers())) body = best->make();
    }
    if (!body) body = std::make_shared<MessageBody>();
    body->setMessage(message);
    return body;
}

std::optional<std::string> MessageBody::defaultAttachmentDirectory() {
    auto& directory = attachmentDirectory();
    const MutexLock lock(directory.mutex);  // also while it is made, so that it is made once
    if (!directory.path.empty()) return directory.path;
    auto path = usualAttachmentDirectory();
    if (!pathExists(path) && !makeDirectoryWithMode(path, 0700)) {
        log("Could not create attachment directory %@", path);
        return std::nullopt;
    }
    directory.path = std::move(path);
    return directory.path;
}

void MessageBody::setDefaultAttachmentDirectory(std::string_view path) {
    auto& directory = attachmentDirectory();
    const MutexLock lock(directory.mutex);
    directory.path = path;
}

MessageBody::~MessageBody() = default;

void MessageBody::setMessage(const std::shared_ptr<Message>& message) {
    if (!_message.lock()) _message = message;
}

std::optional<Data> MessageBody::encodedBody() {
    if (_encoded) return _encoded;
    const auto message = _message.lock();
    if (!message) return std::nullopt;
    const auto source = message->messageSource();
    if (source) _encoded = source->bodyForMessage(*message);
    message->noteMissing(MessagePart::body, !_encoded);
    return _encoded;
}

void MessageBody::setEncodedBody(std::optional<Data> bytes) {
    _encoded = std::move(bytes);
}

void MessageBody::flushCachedData() {
    const auto message = _message.lock();
    if (message && message->messageSource()) _encoded.reset();
}

std::size_t MessageBody::cachedDataSize() const {
    return _encoded ? _encoded->size() : 0;
}

std::string MessageBody::className() const {
    return "MessageBody";
}

}  // namespace lorvale
