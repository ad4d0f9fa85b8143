#include <utility>

#include "lorvale/body/mime_body.h"
#include "lorvale/defaults.h"
#include "lorvale/message.h"

/// The bytes of a body that was set as a text.

namespace lorvale {

namespace {

constexpr std::string_view kAlternatives = "MimeAlternatives";

std::size_t expectedSize(const AttributedText& text, const MimeBodyPart::Files& files) {
    std::size_t size = text.string().size();
    for (const auto& file : files) size += file ? file->regularFileContents().size() : 0;
    for (const auto& file : text.attachments()) size += file->regularFileContents().size();
    return size + size / 2 + 1024;
}

}  // namespace

bool MimeBody::autoAlternative() {
    return Defaults::sharedInstance().boolForKey(kAlternatives);
}

void MimeBody::setAutoAlternative(bool on) {
    Defaults::sharedInstance().setObject(PropertyList(on), kAlternatives);
}

void MimeBody::setFiles(MimeBodyPart::Files files) {
    {
        const MutexLock lock(_composingMutex);
        _files.swap(files);
    }
    if (_decodedBody()) flushEncodedBodyCache();
}

std::optional<Data> MimeBody::encodeBody() {
    const MutexLock lock(_composingMutex);
    if (auto made = _encodedBody()) return made;  // by another thread, which has set the headers for it
    const auto text = _decodedBody();
    if (!text) return std::nullopt;
    const auto root = MimeBodyPart::bodyPartFromAttributedString(*text, _files);
    if (const auto owner = message()) root->appendHeadersToMessageHeaders(*owner->headers());
    ByteBuffer bytes(expectedSize(*text, _files));
    root->appendBodyToData(bytes);
    const auto made = bytes.data();
    _setEncodedBody(made);
    return made;
}

}  // namespace lorvale
