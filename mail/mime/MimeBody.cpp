#include "lorvale/body/mime_body.h"

#include <algorithm>
#include <utility>

#include "base/files/PathUtils.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/format.h"
#include "mail/mime/MimeBodyTree.h"
#include "mail/model/RegisteredClass.h"

namespace lorvale {

namespace {

void registerMimeBody() {
    const MessageBodyClass theClass{"MimeBody", MimeBody::willingnessToDecode,
                                    [] { return std::make_shared<MimeBody>(); }};
    MessageBody::bodyClasses().registerClass(theClass);
    MessageBody::registerMessageClass(theClass, "MIME");
}

const RegisteredClass kMimeBody(ClassRank::preferred, registerMimeBody);

struct MissingAttachment {
    Mutex mutex;
    std::string text LORVALE_GUARDED_BY(mutex) = "<attachment missing>";
};

MissingAttachment& missingAttachment() {
    static MissingAttachment text;
    return text;
}

/// The envelope line of a mailbox is no part of the message.
Data withoutEnvelopeLine(const Data& header) {
    const auto view = header.view();
    if (!view.starts_with("From ")) return header;
    const auto end = std::min(view.find('\n'), view.size() - 1) + 1;
    return header.subdata(Range{end, header.size() - end});
}

}  // namespace

MimeBody::Tree::Tree(MimeBody& body) : _body(body) {
    {
        const MutexLock lock(_body._treeMutex);
        _root = std::exchange(_body._mainBodyPart, nullptr);
        _version = _body._treeVersion;
    }
    if (!_root) _root = _body._createMainBodyPart();
}

MimeBody::Tree::~Tree() {
    const MutexLock lock(_body._treeMutex);
    if (_version == _body._treeVersion) _body._mainBodyPart.swap(_root);
}

std::shared_ptr<MimeBodyPart> MimeBody::Tree::alternative() const {
    return _root ? _root->alternativeAtIndex(_body._preferredAlternative) : nullptr;
}

void MimeBody::dropTree() {
    std::shared_ptr<MimeBodyPart> gone;  // behind the lock
    const MutexLock lock(_treeMutex);
    _mainBodyPart.swap(gone);
    ++_treeVersion;
}

float MimeBody::willingnessToDecode(MessageHeaders& headers) {
    const bool saysMime = headers.objectsForKey("mime-version").has_value();
    const auto type = headers.firstTextForKey("content-type");
    return saysMime && type.find('/') != std::string::npos ? 0.667F : 0.333F;
}

std::string MimeBody::versionString() {
    return formatText("%@ (%@)", "1.0", Message::verboseVersion());
}

std::string MimeBody::missingAttachmentString() {
    auto& missing = missingAttachment();
    const MutexLock lock(missing.mutex);
    return missing.text;
}

void MimeBody::setMissingAttachmentString(std::string_view text) {
    auto& missing = missingAttachment();
    const MutexLock lock(missing.mutex);
    missing.text = text;
}

MimeBody::MimeBody() = default;

MimeBody::~MimeBody() {
    const MutexLock lock(_treeMutex);
    if (!_temporaryDirectory.empty() && !deletePath(_temporaryDirectory))
        log("Could not delete %@", _temporaryDirectory);
}

std::shared_ptr<MimeBodyPart> MimeBody::_createMainBodyPart() {
    const auto owner = message();
    if (!owner) return nullptr;
    const auto bytes = encodedBody().value_or(Data());  // first: composing them changes the headers
    const auto header = owner->headers()->encodedHeaders();
    if (!header) return nullptr;
    const auto block = withoutEnvelopeLine(*header);
    ByteBuffer whole(block.size() + bytes.size());
    whole.append(block);
    whole.append(bytes);
    return MimeBodyPart::bodyPartWithData(whole.data());
}

std::shared_ptr<MimeBodyPart> MimeBody::bodyPart() {
    return _createMainBodyPart();
}

std::optional<std::string> MimeBody::mimeType() {
    const auto part = Tree(*this).alternative();
    return part ? part->mimeType() : std::nullopt;
}

std::optional<std::string> MimeBody::mimeSubtype() {
    const auto part = Tree(*this).alternative();
    return part ? part->mimeSubtype() : std::nullopt;
}

bool MimeBody::hasAttachments() {
    const auto type = mimeType();
    return type && *type != "text";  // not by isKeyEqual(): "x-text" is no text here
}

bool MimeBody::isHTML() {
    const auto part = Tree(*this).alternative();
    return part && part->isText() && part->mimeSubtype() && isKeyEqual(*part->mimeSubtype(), "html");
}

bool MimeBody::isRich() {
    const auto part = Tree(*this).alternative();
    return !part || part->isRichBody();
}

std::size_t MimeBody::numberOfAlternatives() {
    const Tree tree(*this);
    return tree.root() ? tree.root()->numberOfAlternatives() : 0;
}

void MimeBody::setPreferredAlternative(int index) {
    _preferredAlternative = index;
    flushCachedData();
}

void MimeBody::flushEncodedBodyCache() {
    MessageBody::flushEncodedBodyCache();
    dropTree();  // a part without its bytes has nothing to show
}

void MimeBody::flushCachedData() {
    dropTree();
    MessageBody::flushCachedData();
}

void MimeBody::setDecodedBody(std::optional<AttributedText> text) {
    dropTree();
    MessageBody::setDecodedBody(std::move(text));
}

}  // namespace lorvale
