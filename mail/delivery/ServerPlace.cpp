#include "mail/delivery/ServerPlace.h"

namespace lorvale {

ServerPlace ServerPlace::of(const std::string& text) {
    const auto bracket = text.find(']');
    if (text.starts_with('[') && bracket != std::string::npos) {
        const bool hasPort = text.compare(bracket + 1, 1, ":") == 0;
        return {text.substr(1, bracket - 1), hasPort ? text.substr(bracket + 2) : ""};
    }
    const auto colon = text.find(':');
    if (colon == std::string::npos || colon != text.rfind(':')) return {text, ""};
    return {text.substr(0, colon), text.substr(colon + 1)};
}

}  // namespace lorvale
