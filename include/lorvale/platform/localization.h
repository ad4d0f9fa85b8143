#pragma once
#include <string>
#include <string_view>

#include "lorvale/export.h"

namespace lorvale {

/// The text in the user's language, from the system's message catalogue "lorvale" (gettext; the host calls
/// setlocale() to choose the language).  Without a catalogue or an entry the text itself.  The comment is for
/// translators.
LORVALE_EXPORT std::string LVLocalizedString(std::string_view text, std::string_view comment = {});

/// Where the catalogues lie, as LANGUAGE/LC_MESSAGES/lorvale.mo; the system's place at first.
LORVALE_EXPORT void setCatalogueDirectory(std::string_view path);

}  // namespace lorvale
