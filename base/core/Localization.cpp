#include "lorvale/platform/localization.h"

#include <libintl.h>

namespace lorvale {

namespace {

constexpr const char* kDomain = "lorvale";

/// The library speaks UTF-8 whatever the locale's own encoding is; gettext converts.
void bindCodesetOnce() {
    static const bool bound = ::bind_textdomain_codeset(kDomain, "UTF-8") != nullptr;
    static_cast<void>(bound);
}

}  // namespace

std::string LVLocalizedString(std::string_view text, std::string_view /*comment*/) {
    // The empty text is the catalogue's own header.
    if (text.empty()) return {};
    bindCodesetOnce();
    return ::dgettext(kDomain, std::string(text).c_str());
}

void setCatalogueDirectory(std::string_view path) {
    ::bindtextdomain(kDomain, std::string(path).c_str());
}

}  // namespace lorvale
