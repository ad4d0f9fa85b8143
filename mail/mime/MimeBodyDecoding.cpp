#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/body/mime_body.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/format.h"
#include "mail/mime/LockedRTFD.h"
#include "mail/mime/MimeBodyTree.h"

/// The text of a body, and where a classic one lays out its attachments: in a directory in the mailbox that the
/// header "mime-reference" names, or without that header in one that goes with the body.

namespace lorvale {

namespace {

constexpr std::string_view kReference = "mime-reference";

bool isDirectory(const std::string& path) {
    const auto found = FileSystem::current().attributes(path);
    return found && found->isDirectory;
}

std::string referenceOf(Message& message) {
    return message.headers()->firstTextForKey(kReference);
}

}  // namespace

std::shared_ptr<const AttributedText> MimeBody::textOfAlternative() {
    const Tree tree(*this);
    const auto part = tree.alternative();
    return part ? std::make_shared<const AttributedText>(part->decodeBodyPartInDirectory(std::nullopt))
                : nullptr;
}

std::shared_ptr<const AttributedText> MimeBody::decodeBody() {
    const auto owner = message();
    if (mailDialect() == MailDialect::standard || !owner || attachmentDirectory() || !hasAttachments())
        return decodeBodyIntoDirectory(std::nullopt);
    const auto reference = referenceOf(*owner);
    const auto directory = usualDirectory();
    if (reference.empty()) {
        auto text = decodeBodyIntoDirectory(directory);
        const auto made = attachmentDirectory();
        const MutexLock lock(_treeMutex);
        if (made) _temporaryDirectory = *made;
        return text;
    }
    // The last component alone: the message could have brought the header with it.
    if (directory)
        setAttachmentDirectory(stringByAppendingPathComponent(*directory, lastPathComponent(reference)));
    return decodeBodyIntoDirectory(std::nullopt);
}

/// The directory of the mailbox; a mailbox that is a file has none.
std::optional<std::string> MimeBody::usualDirectory() const {
    const auto owner = message();
    const auto source = owner ? owner->messageSource() : nullptr;
    const auto path = source ? source->storePath() : std::string();
    return isDirectory(path) ? std::optional(path) : defaultAttachmentDirectory();
}

std::shared_ptr<const AttributedText> MimeBody::decodeBodyIntoDirectory(std::optional<std::string> directory) {
    if (mailDialect() == MailDialect::standard || !hasAttachments()) return textOfAlternative();
    return directory ? textInNewDirectory(*directory) : textInKnownDirectory();
}

std::shared_ptr<const AttributedText> MimeBody::textInKnownDirectory() {
    const auto place = attachmentDirectory().value_or("");
    if (auto text = textOfAlternative()) {
        if (isDirectory(place) || lockedWriteRTFDToFile(*text, place, true)) return text;
        log("Could not save text in %@", place);
        return nullptr;
    }
    const auto path = usualDirectory();
    auto text = path ? textInNewDirectory(*path) : nullptr;
    if (text) return text;
    return std::make_shared<const AttributedText>(
        formatText("<Missing attachment: message contents could not be found in %@>", place));
}

std::shared_ptr<const AttributedText> MimeBody::textInNewDirectory(const std::string& directory) {
    const auto owner = message();
    const auto path = owner ? uniqueAttachment(directory) : std::nullopt;
    if (!path) return nullptr;
    if (referenceOf(*owner).empty()) {
        owner->headers()->allHeaders();  // which a change needs
        owner->headers()->setObject(lastPathComponent(*path), kReference);
    }
    auto text = textOfAlternative();
    if (!text || !lockedWriteRTFDToFile(*text, *path, true)) {
        log("Could not save text in %@", *path);
        return nullptr;
    }
    setAttachmentDirectory(*path);
    return text;
}

std::optional<std::string> MimeBody::uniqueAttachment(std::optional<std::string_view> directory) {
    const auto owner = message();
    if (!owner) return std::nullopt;
    const auto subject = owner->headers()->firstTextForKey("subject");
    return Message::makeUniqueAttachmentNamed(
        subject.empty() ? std::nullopt : std::optional<std::string_view>(subject), ".mimeattach", directory);
}

bool MimeBody::makeUniqueTemporaryAttachmentInDirectory(std::optional<std::string_view> directory) {
    auto path = uniqueAttachment(directory);
    const bool made = path.has_value();
    if (made) setAttachmentDirectory(std::move(path));
    return made;
}

}  // namespace lorvale
