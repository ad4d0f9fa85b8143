#include "mail/mime/StandardComposer.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "base/richtext/ZipArchive.h"
#include "lorvale/message/dates.h"
#include "lorvale/mime.h"
#include "lorvale/values/rich_text.h"
#include "lorvale/values/text.h"
#include "mail/mime/FileNames.h"
#include "mail/mime/FlowedText.h"
#include "mail/mime/LineEnds.h"
#include "mail/mime/PlainOrRich.h"
#include "mail/mime/TextBlocks.h"
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

std::string nameOf(const FileWrapper& file) {
    const auto& name = file.preferredFilename().empty() ? file.filename() : file.preferredFilename();
    return name.empty() ? std::string(kNamelessFile) : name;
}

/// The text with "\n" for each "\r\n" and each '\r' alone, also where its runs meet between the two.
AttributedText withNewlineEnds(const AttributedText& text) {
    if (text.string().find('\r') == std::string::npos) return text;
    AttributedText out;
    bool afterReturn = false;
    for (const auto& run : text.runs()) {
        auto piece = run.text;
        if (afterReturn && piece.starts_with('\n')) piece.remove_prefix(1);
        afterReturn = run.text.ends_with('\r');
        out.append(withNewlines(std::string(piece)), run.attributes);
    }
    return out;
}

/// What a reader without pages sees: the names of pictures, and where links lead.
std::string plainForm(const AttributedText& text) {
    std::string plain;
    for (const auto& run : text.runs()) {
        const auto& [font, color, underline, style, link, attachment] = run.attributes;
        if (attachment != nullptr) {
            for (std::size_t i = 0; i < run.range.length; ++i) plain += "[" + nameOf(*attachment) + "]";
            continue;
        }
        plain += run.text;
        if (link && *link != run.text && *link != "mailto:" + std::string(run.text))
            plain += " <" + *link + ">";
    }
    return plain;
}

/// The kinds that every program shows in a page.
bool isPicture(const FileWrapper& file) {
    if (file.kind() != FileWrapper::Kind::regularFile) return false;
    MimeBodyPart part(kStandard);
    part.setMimeTypeFromFile(nameOf(file));
    constexpr std::string_view kShown[] = {"jpeg", "png", "gif", "webp"};
    return part.mimeType() == "image" && std::ranges::find(kShown, *part.mimeSubtype()) != std::end(kShown);
}

template <class Goes>
AttributedText withoutAttachments(const AttributedText& text, Goes goes) {
    AttributedText out;
    for (const auto& run : text.runs())
        if (run.attributes.attachment == nullptr || !goes(*run.attributes.attachment))
            out.append(run.text, run.attributes);
    return out;
}

}  // namespace

std::shared_ptr<MimeBodyPart> StandardComposer::partForText(const AttributedText& wanted,
                                                            const MimeBodyPart::Files& files) {
    AttributedText text = withNewlineEnds(wanted);
    const bool isRich = hasVisibleAttributes(text);
    MimeBodyPart::Files behind;  // those that do not stand in the text
    for (auto& file : text.attachments())
        if (!isRich || !isPicture(*file)) behind.push_back(std::move(file));
    std::ranges::copy_if(files, std::back_inserter(behind), [](const auto& file) { return file != nullptr; });
    text = withoutAttachments(text, [&](const FileWrapper& file) { return !isRich || !isPicture(file); });
    MimeBodyPart::Parts parts{isRich ? richPart(text) : plainPart(text.string())};
    for (const auto& file : behind) parts.push_back(partForFile(*file, nameOf(*file)));
    return parts.size() == 1 ? parts.front() : multipart("mixed", std::move(parts));
}

/// Flowed lines, unless the text has blanks at the ends of its lines, which would read as joints.  A text that
/// looks as if it held files, as mail had them before MIME, says that it is to be shown as it stands.
std::shared_ptr<MimeBodyPart> StandardComposer::plainPart(const std::string& text) {
    auto part = newPart("text", "plain");
    const auto flowed = flowedText(text);
    if (flowed) part->setMimeParameter("flowed", "format");
    part->setBodyString(flowed.value_or(text));
    if (!blocksInText(*part->bodyData()).empty()) part->setDisposition(ContentDisposition::inlined);
    return part;
}

/// RFC 2046, section 5.1.4, and RFC 2387: the page with its pictures is the better one of two forms.
std::shared_ptr<MimeBodyPart> StandardComposer::richPart(const AttributedText& text) {
    std::map<const FileWrapper*, std::string> addresses;
    MimeBodyPart::Parts related(1);
    const auto page = htmlFromAttributedText(text, [&](const std::shared_ptr<const FileWrapper>& file) {
        auto& address = addresses[file.get()];
        if (address.empty()) {
            const auto id = makeMessageID();
            related.push_back(regularFile(file->regularFileContents(), nameOf(*file)));
            related.back()->setDisposition(ContentDisposition::inlined, nameOf(*file));
            related.back()->setMimeHeader(id, "content-id");
            address = "cid:" + id.substr(1, id.size() - 2);
        }
        return std::optional(address);
    });
    related.front() = newPart("text", "html");
    related.front()->setBodyString(page.view());
    auto shown = related.size() == 1 ? related.front() : multipart("related", related);
    if (related.size() > 1) shown->setMimeParameter("text/html", "type");
    return multipart("alternative", {plainPart(plainForm(text)), std::move(shown)});
}

std::shared_ptr<MimeBodyPart> StandardComposer::partForFile(const FileWrapper& file, std::string_view wanted) {
    const auto name = wanted.empty() ? nameOf(file) : std::string(wanted);
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
