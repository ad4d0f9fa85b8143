#include "mail/mime/LineEnds.h"

namespace lorvale {

std::string withNewlines(std::string text) {
    auto from = text.find('\r');
    if (from == std::string::npos) return text;
    auto to = from;
    for (; from < text.size(); ++from) {
        if (text[from] != '\r') {
            text[to++] = text[from];
        } else if (from + 1 == text.size() || text[from + 1] != '\n') {
            text[to++] = '\n';
        }
    }
    text.resize(to);
    return text;
}

}  // namespace lorvale
