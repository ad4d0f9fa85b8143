#include "lorvale/body/plain_body.h"

#include <algorithm>

#include "lorvale/body/mime_body.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/format.h"
#include "mail/encoding/LineWrapping.h"
#include "mail/mime/BodyText.h"

namespace lorvale {

namespace {

/// " \n", the soft end of a wrapped line, goes.
std::string withoutSoftLineEnds(std::string_view text) {
    std::string joined;
    joined.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ' && i + 1 < text.size() && text[i + 1] == '\n') {
            ++i;
        } else {
            joined += text[i];
        }
    }
    return joined;
}

}  // namespace

float PlainBody::willingnessToDecode(MessageHeaders&) {
    return 0.433F;
}

const MessageBodyClass& PlainBody::bodyClass() {
    static const auto& theClass =
        *new MessageBodyClass{"PlainBody", willingnessToDecode, [] { return std::make_shared<PlainBody>(); }};
    return theClass;
}

std::shared_ptr<const AttributedText> PlainBody::decodeBody() {
    const auto bytes = _encodedBody().value_or(Data());
    const auto preferred = preferedMIMEStringEncoding();
    auto read = preferred == StringEncoding::unknown ? std::nullopt : decode(bytes.view(), preferred);
    const auto text = read ? *std::move(read) : decodeCString(bytes.view());
    return std::make_shared<const AttributedText>(
        fixedText(shouldDecodeSoftLinebreaks() ? withoutSoftLineEnds(text) : text));
}

/// Programs of this family wrap what they send; all others mean their line ends.
bool PlainBody::shouldDecodeSoftLinebreaks() {
    const auto owner = message();
    if (!owner) return false;
    const auto headers = owner->headers();
    if (headers->firstTextForKey("x-mailer").find("Corvane") != std::string::npos) return true;
    const auto received = headers->objectsForKey("received").value_or(std::vector<std::string>());
    return std::ranges::any_of(received, [](const std::string& value) {
        return value.starts_with("by Tarn.Mailer") || value.starts_with("by Orrin.Mailer");
    });
}

/// The text alone, as MimeBody would send it.
Data PlainBody::encodeByStandard(const AttributedText& text) {
    AttributedText alone(text);
    alone.removeAllAttachments();
    const auto part = MimeBodyPart::bodyPartFromAttributedString(AttributedText(alone.string()));
    if (const auto owner = message()) part->appendHeadersToMessageHeaders(*owner->headers());
    ByteBuffer bytes(alone.string().size());
    part->appendBodyToData(bytes);
    return bytes.data();
}

std::optional<Data> PlainBody::encodeBody() {
    const auto text = _decodedBody();
    if (!text) return std::nullopt;
    if (mailDialect() == MailDialect::standard) return encodeByStandard(*text);
    const auto encoding = bestMIMEStringEncoding(text->string());
    const auto bytes = encode(text->string(), encoding, Lossy::yes).value_or(Data());
    ByteBuffer out(bytes.size());
    appendDataWrapped(out, bytes.view(), static_cast<std::size_t>(lineLength()), true);
    const auto owner = message();
    if (owner && encoding != StringEncoding::ascii && encoding != StringEncoding::isoLatin1) {
        const auto headers = owner->headers();
        headers->allHeaders();  // which a change needs
        headers->setObject(MimeBody::versionString(), "mime-version");
        headers->setObject(formatText("text/plain; charset=%@", _charsetForEncoding(encoding)), "content-type");
    }
    return out.data();
}

}  // namespace lorvale
