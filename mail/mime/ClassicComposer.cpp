#include "mail/mime/ClassicComposer.h"

#include <optional>
#include <string>
#include <utility>

#include "base/text/StringUtils.h"
#include "lorvale/body/mime_body.h"
#include "lorvale/mime.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/mime/EnrichedWriter.h"
#include "mail/mime/PlainOrRich.h"

namespace lorvale {

namespace {

constexpr auto kClassic = MailDialect::classic;

std::shared_ptr<MimeBodyPart> newPart(std::string_view type, std::string_view subtype) {
    auto part = std::make_shared<MimeBodyPart>(kClassic);
    part->setMimeType(type, subtype);
    return part;
}

/// Takes the text up to a marker, and the marker; all of it without one.  A marker behind a "<" is text that
/// looks like one, which the writer has marked so.  (It may also be a real one behind a text that ends in "<";
/// its attachment is then left out, as the programs that read such letters have always had it.)
std::string_view _scanToEnrichedString(std::string_view marker, std::string_view& scanner) {
    auto found = scanner.find(marker);
    while (found != std::string_view::npos && found > 0 && scanner[found - 1] == '<')
        found = scanner.find(marker, found + 1);
    const auto taken = scanner.substr(0, found);
    scanner.remove_prefix(found == std::string_view::npos ? scanner.size() : found + marker.size());
    return taken;
}

/// Finds the attachments of a text, one after the other.
class AttachmentsInTurn {
public:
    explicit AttachmentsInTurn(const AttributedText& text) : _attachments(text.attachments()) {}

    /// The next one, if it has the name.
    std::shared_ptr<const FileWrapper> named(std::string_view name) {
        const auto next = _at < _attachments.size() ? _attachments[_at++] : nullptr;
        if (next && next->preferredFilename() == name) return next;
        log("Looking for attachment %@, found %@", name, next ? next->preferredFilename() : "(null)");
        return nullptr;
    }

private:
    std::vector<std::shared_ptr<const FileWrapper>> _attachments;
    std::size_t _at = 0;
};

std::string withMissingAttachments(const AttributedText& text) {
    std::string replaced;
    const auto pieces = split(text.string(), kAttachmentCharacter);
    const auto missing = MimeBody::missingAttachmentString();
    for (const auto& piece : pieces) {
        if (&piece != &pieces.front()) replaced += missing;
        replaced += piece;
    }
    return replaced;
}

}  // namespace

std::shared_ptr<MimeBodyPart> ClassicComposer::partForText(const AttributedText& wanted,
                                                           const MimeBodyPart::Files& files) {
    AttributedText text(wanted);
    for (const auto& file : files)
        if (file) text.append(AttributedText(file));
    if (!containsRichText(text) && !text.containsAttachments()) return plainPart(text.string());
    if (!MimeBody::autoAlternative()) return enrichedPart(text);
    auto part = newPart("multipart", "alternative");
    part->setBodyParts({plainPart(withMissingAttachments(text)), enrichedPart(text)});
    return part;
}

/// In ASCII, with "?" for what it lacks.
std::shared_ptr<MimeBodyPart> ClassicComposer::plainPart(std::string_view text) {
    auto part = newPart("text", "plain");
    part->setBodyData(encode(text, StringEncoding::ascii, Lossy::yes));
    return part;
}

std::shared_ptr<MimeBodyPart> ClassicComposer::enrichedPart(const AttributedText& text) {
    const auto enriched = enrichedString(text, kClassic);
    AttachmentsInTurn attachments(text);
    MimeBodyPart::Parts parts;
    for (std::string_view rest = enriched; !rest.empty();) {
        if (const auto piece = _scanToEnrichedString("<attachment>", rest); !piece.empty()) {
            parts.push_back(newPart("text", "enriched"));
            parts.back()->setBodyString(piece);
        }
        const auto name = _scanToEnrichedString("</attachment>", rest);
        const auto file = name.empty() ? nullptr : attachments.named(name);
        if (file) parts.push_back(partForFile(*file, file->preferredFilename()));
    }
    if (parts.size() == 1) return onlyPart(parts.front());
    auto part = newPart("multipart", "mixed");
    part->setBodyParts(std::move(parts));
    return part;
}

/// The part in the place of a multipart that would hold it alone.  One that has parts itself gives its bytes,
/// headers and all, which are taken apart again where its parts are asked for.
std::shared_ptr<MimeBodyPart> ClassicComposer::onlyPart(const std::shared_ptr<MimeBodyPart>& child) {
    auto part = std::make_shared<MimeBodyPart>(kClassic);
    auto data = child->bodyData();
    if (!data) {
        ByteBuffer bytes;
        child->appendToData(bytes);
        data = bytes.data();
    }
    part->_mimeType = child->_mimeType;
    part->_mimeSubtype = child->_mimeSubtype;
    part->_mimeParams = child->_mimeParams;
    part->_bodyEncoding = child->bodyEncoding();
    part->setBodyData(std::move(data));
    return part;
}

std::shared_ptr<MimeBodyPart> ClassicComposer::partForFile(const FileWrapper& file, std::string_view name,
                                                           std::size_t level) {
    if (level > MimeBodyPart::kDeepestFolder)
        throw InvalidArgumentException(formatText("\"%@\" lies too deep in directories to be sent", name));
    if (file.kind() == FileWrapper::Kind::symbolicLink) return reference(file, name);
    auto part = newPart("multipart", "x-folder");
    part->setMimeParameter(name, "name");
    if (file.permissions()) part->setMimeParameter(formatText("%#o", *file.permissions()), "x-unix-mode");
    if (file.kind() == FileWrapper::Kind::directory) {
        MimeBodyPart::Parts children;
        for (const auto& [entryName, entry] : file.fileWrappers())
            children.push_back(
                partForFile(*entry, entry->preferredFilename().empty() ? entryName : entry->preferredFilename(),
                            level + 1));
        part->setBodyParts(std::move(children));
        return part;
    }
    part->setMimeTypeFromFile(name);
    part->setBodyData(file.regularFileContents());
    return readAnew(std::move(part));
}

/// Where the file is, and what it is: the body is the header block that it would have.
std::shared_ptr<MimeBodyPart> ClassicComposer::reference(const FileWrapper& link, std::string_view name) {
    const auto described = std::make_shared<MimeBodyPart>(kClassic);
    described->setMimeTypeFromFile(name);
    ByteBuffer block;
    described->appendHeadersToData(block);
    auto part = newPart("message", "external-body");
    part->setBodyData(block.data());
    part->setMimeParameter("local-file", "access-type");
    part->setMimeParameter(link.symbolicLinkDestination(), "name");
    return part;
}

/// A file that is such a reference itself stands for what it says.
std::shared_ptr<MimeBodyPart> ClassicComposer::readAnew(std::shared_ptr<MimeBodyPart> part) {
    const bool isReference = part->_mimeType == "message" && part->_mimeSubtype == "external-body";
    if (!isReference) return part;
    try {
        if (auto read = MimeBodyPart::bodyPartWithData(part->bodyData(), kClassic)) return read;
    } catch (const RangeException&) {
        log("\"%@\" is no reference to a file", part->mimeParameterForKey("name").value_or(""));
    }
    return part;
}

}  // namespace lorvale
