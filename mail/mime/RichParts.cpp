#include "mail/mime/RichParts.h"

namespace lorvale {

AttributedText textFromEnriched(std::string_view text) {
    return AttributedText(text);
}

AttributedText textFromRichText(std::string_view text) {
    return AttributedText(text);
}

}  // namespace lorvale
