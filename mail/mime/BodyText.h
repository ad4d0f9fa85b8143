#pragma once
#include <optional>

#include "lorvale/body/mime_body_part.h"
#include "lorvale/values/rich_text.h"

/// From a part to attributed text, a room for each dialect.  Both call
/// MimeBodyPart::decodeBodyPartInDirectory() for children.

namespace lorvale {

class ClassicBodyText {
public:
    explicit ClassicBodyText(MimeBodyPart& part) : _part(part) {}
    /// May throw; the part then shows itself as plain text.
    AttributedText text();

private:
    AttributedText textOfMultipart(const MimeBodyPart::Parts& children);
    AttributedText textOfText();
    AttributedText textOfMessage();
    AttributedText textOfApplication();
    AttributedText attachment();
    AttributedText localFile(std::string_view path);
    AttributedText childText(MimeBodyPart& child);
    AttributedText _convertArrayToAttributedString(const MimeBodyPart::Parts& children);
    bool readBinHex40BodyFromData(const Data& data);
    bool hasSubtype(std::string_view subtype) const;

    MimeBodyPart& _part;
};

class StandardBodyText {
public:
    explicit StandardBodyText(MimeBodyPart& part) : _part(part) {}
    AttributedText text();

private:
    AttributedText textOfMultipart(const MimeBodyPart::Parts& children);
    AttributedText textOfRelated(const MimeBodyPart::Parts& children);
    AttributedText textOfEmbeddedMessage(MimeBodyPart& message);
    AttributedText textOfText();
    AttributedText plainText();
    AttributedText textOfHTML(const AttachmentSource& pictures);
    AttributedText childText(MimeBodyPart& child);
    AttributedText attachment();
    bool hasSubtype(std::string_view subtype) const;

    MimeBodyPart& _part;
};

/// The body as plain text, in the fixed-pitch font of the user where the default "AutoSelectFont" is on.
AttributedText fixedText(std::string_view text);

/// Whether there is room for one more level of parts and messages in each other.  Messages in messages are
/// bodies of their own, so this is counted by thread.
bool mayNestDeeper();

/// The default "ShouldInlineMIMETextAttachments": text that has a name is shown and no attachment.
bool inlinesTextAttachments();

}  // namespace lorvale
