#include "mail/mime/HeaderFields.h"

#include "lorvale/values/text.h"

namespace lorvale {

std::string unfoldedClassicField(std::string_view value) {
    std::string text(value);
    std::ranges::replace(text, '\n', ' ');
    return text;
}

std::string unfoldedStandardField(std::string_view value) {
    std::string text(trimmed(value));
    std::erase_if(text, [](char c) { return c == '\n' || c == '\r'; });
    return text;
}

}  // namespace lorvale
