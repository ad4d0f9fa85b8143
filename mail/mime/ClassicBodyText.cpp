#include <algorithm>

#include "base/files/PathUtils.h"
#include "base/text/DataUtils.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/format.h"
#include "lorvale/values/rich_text.h"
#include "mail/mime/BodyText.h"
#include "mail/mime/EnrichedReader.h"
#include "mail/mime/FileNames.h"
#include "mail/mime/MessageHeaderText.h"

namespace lorvale {

bool ClassicBodyText::hasSubtype(std::string_view subtype) const {
    return _part._mimeSubtype && isKeyEqual(*_part._mimeSubtype, subtype);
}

AttributedText ClassicBodyText::text() {
    const auto isOfType = [&](std::string_view type) { return isKeyEqual(*_part._mimeType, type); };
    if (!_part._mimeType) return fixedText(_part.body());
    if (isOfType("multipart") && mayNestDeeper())
        if (const auto* const children = _part.bodyParts()) return textOfMultipart(*children);
    if (isOfType("text")) return textOfText();
    if (isOfType("message")) return textOfMessage();
    if (isOfType("application")) return textOfApplication();
    return attachment();
}

AttributedText ClassicBodyText::childText(MimeBodyPart& child) {
    return child.decodeBodyPartInDirectory(_part._attachDir);
}

AttributedText ClassicBodyText::textOfMultipart(const MimeBodyPart::Parts& children) {
    if (hasSubtype("alternative")) return children.empty() ? AttributedText() : childText(*children.back());
    if (hasSubtype("rtfd")) return _convertArrayToAttributedString(children);
    if (hasSubtype("folder")) return attachment();
    const auto ruler = hasSubtype("digest") ? decodeCString("\xD0\xD0\xD0\xD0\xD0\n") : std::string();
    AttributedText text;
    for (const auto& child : children) {
        if (child != children.front()) text.append(ruler);
        text.append(childText(*child));
    }
    return text;
}

/// For bodies that are one part of RTF and the multiparts behind it: each part that is no multipart drops what
/// was gathered before it.
AttributedText ClassicBodyText::_convertArrayToAttributedString(const MimeBodyPart::Parts& children) {
    AttributedText text;
    for (const auto& child : children) {
        if (!child->isMultipart()) {
            text = attributedTextFromRTF(child->bodyData().value_or(Data()));
        } else if (const auto* const grandchildren = child->bodyParts()) {
            text.append(_convertArrayToAttributedString(*grandchildren));
        }
    }
    return text;
}

AttributedText ClassicBodyText::textOfText() {
    if (_part.mimeParameterForKey("name") && !inlinesTextAttachments()) return attachment();
    if (hasSubtype("richtext")) return attributedStringFromMimeRichTextString(_part.body());
    if (hasSubtype("enriched")) return attributedStringFromMimeEnrichedString(_part.body());
    if (hasSubtype("html")) return attributedTextFromHTML(Data::copyOf(_part.body()), "utf-8");
    if (hasSubtype("rtf")) return attributedTextFromRTF(_part.bodyData().value_or(Data()));
    const auto subtype = _part._mimeSubtype.value_or("(null)");
    if (!hasSubtype("plain") && !subtype.starts_with("x-tarn"))
        log("Unknown mime text subtype %@, treating as plain", subtype);
    return fixedText(_part.body());
}

AttributedText ClassicBodyText::textOfMessage() {
    if (hasSubtype("rfc822") && mayNestDeeper()) {
        const auto message = Message::messageWithData(_part.bodyData().value_or(Data()));
        return message ? attributedStringForMessage(*message) : AttributedText();
    }
    const auto value = [&](std::string_view key) { return _part.mimeParameterForKey(key); };
    if (hasSubtype("external-body") && value("name") &&
        isKeyEqual(value("access-type").value_or(""), "local-file"))
        return localFile(decodeMimeHeaderValue(*value("name"), MailDialect::classic));
    if (hasSubtype("partial"))
        return AttributedText(
            formatText("Partial message, part %@ of %@\nTo read this message, select all of the parts of the "
                       "message and select the Message --> MIME --> Combine Messages menu item.\n",
                       value("number").value_or("(null)"), value("total").value_or("(null)")));
    return attachment();
}

AttributedText ClassicBodyText::localFile(std::string_view path) {
    _part.forgetBodyFile();
    const auto link = FileWrapper::symbolicLink(path);
    const auto name = safeFilename(lastPathComponent(path));
    if (!link->setFilename(name) || !link->setPreferredFilename(name))
        log("\"%@\" is no name for a file", name);
    return AttributedText(link);
}

AttributedText ClassicBodyText::textOfApplication() {
    if (hasSubtype("rtf") && inlinesTextAttachments())
        return attributedTextFromRTF(_part.bodyData().value_or(Data()));
    if (hasSubtype("mac-binhex40")) {
        constexpr std::string_view kIntroduction = "(This file must be converted with BinHex 4.0)";
        const auto data = _part.bodyData().value_or(Data());
        const auto found = findBytes(data.view(), kIntroduction);
        const auto start = found + kIntroduction.size() + 1;
        if (found != std::string_view::npos && start <= data.size())
            readBinHex40BodyFromData(data.subdata(Range{start, data.size() - start}));
    }
    return attachment();
}

bool ClassicBodyText::readBinHex40BodyFromData(const Data& data) {
    std::string name;
    auto fork = decodeBinHex40(data, &name);
    if (!fork) return false;
    name = safeFilename(name);
    _part._bodyFile = name;
    _part.setMimeParameter(name, "name");
    _part.setBodyData(std::move(fork));
    return true;
}

AttributedText ClassicBodyText::attachment() {
    return AttributedText(_part.fileWrapperForBody());
}

}  // namespace lorvale
