#include <algorithm>
#include <array>

#include "lorvale/mime.h"
#include "lorvale/values/rich_text.h"
#include "lorvale/values/text.h"
#include "mail/mime/Alternatives.h"
#include "mail/mime/BodyText.h"
#include "mail/mime/CalendarText.h"
#include "mail/mime/EnrichedReader.h"
#include "mail/mime/FileNames.h"
#include "mail/mime/FlowedText.h"
#include "mail/mime/MessageHeaderText.h"
#include "mail/mime/TextBlocks.h"

namespace lorvale {

namespace {

/// What stands behind goes on a line of its own.
void endLine(AttributedText& text) {
    if (!text.empty() && !text.string().ends_with('\n')) text.append("\n");
}

/// The content identifier of a part, as "cid:" addresses name it (RFC 2392).
std::string contentID(const MimeBodyPart& part) {
    return std::string(trimmed(part.mimeHeaderForKey("content-id").value_or(""), " \t<>"));
}

}  // namespace

bool StandardBodyText::hasSubtype(std::string_view subtype) const {
    return isKeyEqual(*_part._mimeSubtype, subtype);
}

AttributedText StandardBodyText::text() {
    if (_part.isAttachment() || !mayNestDeeper()) return attachment();
    const auto* const children = _part.bodyParts();
    if (_part.isMultipart()) return children != nullptr ? textOfMultipart(*children) : fixedText(_part.body());
    if (children != nullptr && !children->empty()) return textOfEmbeddedMessage(*children->front());
    return textOfText();
}

AttributedText StandardBodyText::childText(MimeBodyPart& child) {
    return child.decodeBodyPartInDirectory(_part._attachDir);
}

AttributedText StandardBodyText::textOfMultipart(const MimeBodyPart::Parts& children) {
    if (children.empty()) return {};
    if (hasSubtype("alternative")) return childText(*bestAlternative(children));
    if (hasSubtype("related")) return textOfRelated(children);
    // RFC 1847, section 2.1: the first part is what was signed, the second proves it.
    if (hasSubtype("signed")) return childText(*children.front());
    constexpr std::string_view kRuler = "\u2014\u2014\u2014\u2014\u2014\n";
    AttributedText text;
    for (const auto& child : children) {
        endLine(text);
        if (hasSubtype("digest") && child != children.front()) text.append(kRuler);
        text.append(childText(*child));
    }
    return text;
}

// RFC 2387: the root is the one that "start" names, else the first; the others are what it refers to.  What it
// does not show in place stands behind it.
AttributedText StandardBodyText::textOfRelated(const MimeBodyPart::Parts& children) {
    const std::string start(trimmed(_part.mimeParameterForKey("start").value_or(""), " \t<>"));
    const auto named = std::ranges::find_if(
        children, [&](const auto& child) { return !start.empty() && contentID(*child) == start; });
    auto root = named == children.end() ? children.front() : *named;
    if (root->numberOfAlternatives() > 0) root = root->alternativeAtIndex(-1);
    MimeBodyPart::Parts shown{root};
    const AttachmentSource pictures = [&](std::string_view address) -> std::shared_ptr<const FileWrapper> {
        const auto isNamed = [&](const auto& child) {
            const auto id = contentID(*child);
            const bool byID = !id.empty() && address.size() == id.size() + 4 && address.ends_with(id) &&
                              equalIgnoringAsciiCase(address.substr(0, 4), "cid:");
            return byID || (!address.empty() && child->mimeHeaderForKey("content-location") == address);
        };
        const auto found = std::ranges::find_if(children, isNamed);
        if (found == children.end() || *found == root) return nullptr;
        shown.push_back(*found);
        return (*found)->fileWrapperForBody();
    };
    StandardBodyText rootText(*root);
    const bool isHTML = root->isText() && rootText.hasSubtype("html") && !root->isAttachment();
    AttributedText text = isHTML ? rootText.textOfHTML(pictures) : childText(*root);
    for (const auto& child : children) {
        const bool holdsRoot = child->numberOfAlternatives() > 0 && child->alternativeAtIndex(-1) == root;
        if (holdsRoot || std::ranges::find(shown, child) != shown.end()) continue;
        endLine(text);
        text.append(childText(*child));
    }
    return text;
}

AttributedText StandardBodyText::textOfEmbeddedMessage(MimeBodyPart& message) {
    auto text = attributedStringForUsualHeaders(message._headerData.view()).value_or(AttributedText());
    text.append(childText(message));
    return text;
}

AttributedText StandardBodyText::textOfText() {
    if (_part.isText()) {
        if (hasSubtype("plain")) return plainText();
        if (hasSubtype("html")) return textOfHTML(nullptr);
        if (hasSubtype("enriched")) return attributedStringFromMimeEnrichedString(_part.body());
        if (hasSubtype("richtext")) return attributedStringFromMimeRichTextString(_part.body());
        if (hasSubtype("calendar")) return fixedText(calendarText(_part.body()));
    }
    if (hasSubtype("rtf")) return attributedTextFromRTF(_part.bodyData().value_or(Data()));
    return fixedText(_part.body());
}

AttributedText StandardBodyText::textOfHTML(const AttachmentSource& pictures) {
    return attributedTextFromHTML(_part.bodyData().value_or(Data()), _part.mimeParameterForKey("charset"),
                                  pictures);
}

/// Files in the text count, unless its sender says that it is to be shown as it stands.
AttributedText StandardBodyText::plainText() {
    const bool isShown = _part.disposition() == ContentDisposition::inlined;
    const auto blocks = isShown ? std::vector<TextBlock>() : blocksInText(_part.bodyData().value_or(Data()));
    const bool flows = equalIgnoringAsciiCase(_part.mimeParameterForKey("format").value_or(""), "flowed");
    const bool deletesSpace = equalIgnoringAsciiCase(_part.mimeParameterForKey("delsp").value_or(""), "yes");
    const auto shown = [&](const std::string& text) {
        return fixedText(flows ? unflowedText(text, deletesSpace) : text);
    };
    if (blocks.empty()) return shown(_part.body());
    const auto data = *_part.bodyData();
    AttributedText text;
    std::size_t at = 0;
    for (const auto& block : blocks) {
        text.append(shown(_part.textOfBytes(data.view().substr(at, block.start - at))));
        const auto file = FileWrapper::regularFile(block.contents);
        const auto name = safeFilename(block.name);
        if (file->setFilename(name) && file->setPreferredFilename(name)) text.append(AttributedText(file));
        text.append("\n");
        at = block.end;
    }
    text.append(shown(_part.textOfBytes(data.view().substr(at))));
    return text;
}

AttributedText StandardBodyText::attachment() {
    return AttributedText(_part.fileWrapperForBody());
}

}  // namespace lorvale
