#include "mail/mime/RichParts.h"

#include "lorvale/values/encoding.h"
#include "mail/encoding/NamedCharset.h"

namespace lorvale {

AttributedText textFromRTF(const Data& data) {
    return AttributedText(decodeCString(data.view()));
}

AttributedText textFromHTML(const Data& data, const std::optional<std::string>& charset,
                            const AttachmentSource&) {
    const auto text = charset ? decodeNamedCharset(data.view(), *charset) : std::nullopt;
    return AttributedText(text ? *text : decodeUnlabelled(data.view(), StringEncoding::unknown));
}

AttributedText textFromEnriched(std::string_view text) {
    return AttributedText(text);
}

AttributedText textFromRichText(std::string_view text) {
    return AttributedText(text);
}

}  // namespace lorvale
