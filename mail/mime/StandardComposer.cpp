#include "mail/mime/StandardComposer.h"

#include <string>
#include <utility>

#include "base/richtext/ZipArchive.h"
#include "lorvale/message/dates.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"
#include "mail/mime/EnrichedWriter.h"
#include "mail/mime/FileNames.h"
#include "mail/mime/FlowedText.h"
#include "mail/mime/LineEnds.h"
#include "mail/mime/PlainOrRich.h"
#include "mail/mime/TransferChoice.h"

namespace lorvale {

namespace {

constexpr auto kStandard = MailDialect::standard;

std::shared_ptr<MimeBodyPart> newPart(std::string_view type, std::string_view subtype) {
    auto part = std::make_shared<MimeBodyPart>(kStandard);
    part->setMimeType(type, subtype);
    return part;
}

std::shared_ptr<MimeBodyPart> multipart(std::string_view subtype, MimeBodyPart::Parts children) {
    auto part = newPart("multipart", subtype);
    part->setBodyParts(std::move(children));
    return part;
}

/// The charset to name for the bytes of a text file; empty where nobody knows.
std::string_view charsetOf(std::string_view bytes) {
    return isAscii(bytes) ? "us-ascii" : isValidUtf8(bytes) ? "utf-8" : "";
}

}  // namespace

std::shared_ptr<MimeBodyPart> StandardComposer::partForText(const AttributedText& text,
                                                            const MimeBodyPart::Files& files) {
    AttributedText alone(text);
    alone.removeAllAttachments();
    MimeBodyPart::Parts parts{hasVisibleAttributes(alone) ? richPart(alone) : plainPart(alone.string())};
    const auto addAll = [&](const MimeBodyPart::Files& some) {
        for (const auto& file : some)
            if (file) parts.push_back(partForFile(*file, file->preferredFilename()));
    };
    addAll(text.attachments());
    addAll(files);
    return parts.size() == 1 ? parts.front() : multipart("mixed", std::move(parts));
}

/// Flowed lines, unless the text has blanks at the ends of its lines, which would read as joints.
std::shared_ptr<MimeBodyPart> StandardComposer::plainPart(const std::string& text) {
    auto part = newPart("text", "plain");
    const auto lines = withNewlines(text);
    const auto flowed = flowedText(lines);
    if (flowed) part->setMimeParameter("flowed", "format");
    part->setBodyString(flowed.value_or(lines));
    return part;
}

std::shared_ptr<MimeBodyPart> StandardComposer::richPart(const AttributedText& text) {
    auto enriched = newPart("text", "enriched");
    enriched->setBodyString(enrichedString(text, kStandard));
    return multipart("alternative", {plainPart(text.string()), std::move(enriched)});
}

std::shared_ptr<MimeBodyPart> StandardComposer::partForFile(const FileWrapper& file, std::string_view wanted) {
    const std::string name(wanted.empty() ? kNamelessFile : wanted);
    switch (file.kind()) {
        case FileWrapper::Kind::directory:
            return regularFile(zipArchive(file, safeFilename(name)), name + ".zip");
        case FileWrapper::Kind::symbolicLink:
            return reference(file, name);
        case FileWrapper::Kind::regularFile:
            break;
    }
    return regularFile(file.regularFileContents(), name);
}

std::shared_ptr<MimeBodyPart> StandardComposer::regularFile(const Data& contents, std::string_view name) {
    auto part = newPart("application", "octet-stream");
    part->setMimeTypeFromFile(name);
    const bool isMessage = part->mimeType() == "message" && part->mimeSubtype() == "rfc822";
    // A message may not be encoded, so that one with odd bytes can only go as a file of any kind; other
    // messages, and multiparts, are no files but what a letter is made of.
    const bool isStructure = part->isMultipart() || part->mimeType() == "message";
    if (isStructure && !(isMessage && canGoAs8bit(contents.view())))
        part->setMimeType("application", "octet-stream");
    if (part->isText() && !charsetOf(contents.view()).empty())
        part->setMimeParameter(charsetOf(contents.view()), "charset");
    part->setMimeParameter(name, "name");  // for older readers
    part->setDisposition(ContentDisposition::attachment, name);
    part->setBodyData(contents);
    // As it is, also where lines are given other ends on the way.
    if (part->mimeType() != "message") part->setMimeEncoding("base64");
    return part;
}

/// RFC 2046, section 5.2.3: where the file is, and the header block that it would have.
std::shared_ptr<MimeBodyPart> StandardComposer::reference(const FileWrapper& link, std::string_view name) {
    auto described = newPart("application", "octet-stream");
    described->setMimeTypeFromFile(name);
    const auto block = "Content-Type: " + *described->mimeType() + "/" + *described->mimeSubtype() +
                       "\nContent-ID: " + makeMessageID() + "\n\n";
    auto part = newPart("message", "external-body");
    part->setMimeParameter("local-file", "access-type");
    part->setMimeParameter(link.symbolicLinkDestination(), "name");
    part->setBodyData(Data::copyOf(block));
    return part;
}

}  // namespace lorvale
