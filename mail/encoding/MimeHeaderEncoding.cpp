#include "mail/encoding/MimeHeaderEncoding.h"

#include "base/text/NamedCharset.h"
#include "lorvale/mime.h"
#include "mail/encoding/HeaderWords.h"

namespace lorvale {

std::string decodeHeaderValue(std::string_view text, StringEncoding preferred, MailDialect dialect) {
    return dialect == MailDialect::classic ? readClassicWords(text, preferred)
                                           : readStandardWords(text, preferred);
}

std::string encodeHeaderValue(std::string_view text, StringEncoding preferred, MailDialect dialect) {
    constexpr std::size_t kColumn = 10;  // leaves room for the name of the header
    return dialect == MailDialect::classic ? writeClassicWords(text, preferred)
                                           : writeStandardWords(text, kColumn, preferred);
}

std::string decodeMimeHeaderValue(std::string_view text, MailDialect dialect) {
    return decodeHeaderValue(text, preferedMIMEStringEncoding(), dialect);
}

std::string encodeMimeHeaderValue(std::string_view text, MailDialect dialect) {
    return encodeHeaderValue(text, preferedMIMEStringEncoding(), dialect);
}

std::string decodeAddressHeader(std::string_view bytes) {
    return readStandardAddresses(bytes, preferedMIMEStringEncoding());
}

std::string decodeStructuredHeader(std::string_view bytes) {
    return decodeUnlabelled(bytes, preferedMIMEStringEncoding());
}

std::string encodeTextHeader(std::string_view text, std::size_t column) {
    return writeStandardWords(text, column, preferedMIMEStringEncoding());
}

std::string encodeAddressHeader(std::string_view text, std::size_t column) {
    return writeStandardAddresses(text, column, preferedMIMEStringEncoding());
}

std::string encodeStructuredHeader(std::string_view text, std::size_t column) {
    return writeStandardStructure(text, column);
}

}  // namespace lorvale
