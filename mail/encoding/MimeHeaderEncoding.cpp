#include "mail/encoding/MimeHeaderEncoding.h"

#include "lorvale/mime.h"
#include "mail/encoding/HeaderWords.h"

namespace lorvale {

std::string decodeHeaderValue(std::string_view text, StringEncoding preferred) {
    return readClassicWords(text, preferred);
}

std::string encodeHeaderValue(std::string_view text, StringEncoding preferred) {
    return writeClassicWords(text, preferred);
}

std::string decodeMimeHeaderValue(std::string_view text) {
    return decodeHeaderValue(text, preferedMIMEStringEncoding());
}

std::string encodeMimeHeaderValue(std::string_view text) {
    return encodeHeaderValue(text, preferedMIMEStringEncoding());
}

std::string quotedMimeString(std::string_view text) {
    constexpr std::string_view kSpecial = "()<>@,;:\\\"/[]?=";
    if (text.find_first_of(kSpecial) == std::string_view::npos) return std::string(text);
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

}  // namespace lorvale
