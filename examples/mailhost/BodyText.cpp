#include "BodyText.h"

#include <optional>

#include "Mailbox.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

/// Takes "name" or "name=value", with an optional quoted value, off the front of the text, up to and
/// including the next semicolon.
std::pair<std::string, std::string> takeParameter(std::string_view& text) {
    std::string name, value;
    std::string* target = &name;
    bool quoted = false;
    int depth = 0;  // of comments
    std::size_t i = 0;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\\' && (quoted || depth > 0) && i + 1 < text.size()) {
            ++i;
            if (depth == 0) *target += text[i];
        } else if (quoted) {
            if (c == '"')
                quoted = false;
            else
                *target += c;
        } else if (c == '(') {
            ++depth;
        } else if (c == ')' && depth > 0) {
            --depth;
        } else if (depth > 0) {
            continue;
        } else if (c == '"') {
            quoted = true;
        } else if (c == ';') {
            break;
        } else if (c == '=' && target == &name) {
            target = &value;
        } else if (c != ' ' && c != '\t' && c != '\n' && c != '\r') {
            *target += c;
        }
    }
    text.remove_prefix(i < text.size() ? i + 1 : i);
    return {lorvale::asciiLowered(name), value};
}

/// The bytes behind a transfer encoding; nullopt for one that is not known.
std::optional<lorvale::Data> decodedBytes(const lorvale::Data& body, std::string_view encoding) {
    using lorvale::isKeyEqual;
    for (const auto* plain : {"", "7bit", "8bit", "binary"}) {
        if (isKeyEqual(encoding, plain)) return body;
    }
    if (isKeyEqual(encoding, "quoted-printable")) return lorvale::decodeQuotedPrintable(body);
    if (isKeyEqual(encoding, "base64")) return lorvale::decodeBase64(body);
    if (isKeyEqual(encoding, "uuencode")) return lorvale::uudecodedDataIntoFile(body, nullptr, nullptr);
    return std::nullopt;
}

std::string textOf(const lorvale::Data& bytes, std::string_view charset) {
    // Mail without a charset should be ASCII; where it is not, the encoding of the header text is a good guess.
    if (charset.empty() || lorvale::isKeyEqual(charset, "us-ascii"))
        return lorvale::decodeCString(bytes.view());
    return lorvale::decodeLossy(bytes.view(), lorvale::_encodingForCharset(charset));
}

}  // namespace

ContentType ContentType::parse(std::string_view value) {
    ContentType result;
    const auto type = takeParameter(value).first;
    if (type.find('/') != std::string::npos) result.type = type;
    while (!value.empty()) {
        auto [name, text] = takeParameter(value);
        if (!name.empty()) result.parameters.try_emplace(std::move(name), std::move(text));
    }
    return result;
}

BodyText bodyText(lorvale::Message& message) {
    const auto headers = message.headers();
    const auto contentType = ContentType::parse(headers->firstTextForKey("content-type"));
    BodyText result;
    result.type = contentType.type;
    if (const auto found = contentType.parameters.find("charset"); found != contentType.parameters.end()) {
        result.charset = found->second;
    }
    // A word; comments and blanks around it go as in a parameter.
    std::string encodingHeader = headers->firstTextForKey("content-transfer-encoding");
    std::string_view rest = encodingHeader;
    result.transferEncoding = takeParameter(rest).first;

    const auto body = message.encodedBody();
    if (!body) throwUnreadable("the body of the message");
    const auto bytes = contentType.isText() ? decodedBytes(*body, result.transferEncoding) : std::nullopt;
    result.decoded = bytes.has_value();
    result.text = bytes ? textOf(*bytes, result.charset) : body->toString();
    return result;
}

}  // namespace mailhost
