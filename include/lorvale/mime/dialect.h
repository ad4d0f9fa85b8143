#pragma once
#include <cstdint>
#include <optional>
#include <string_view>

#include "lorvale/export.h"

namespace lorvale {

/// How mail is read and written where the system's own manner and the standards part ways.  docs/dialects.md
/// tells every difference.
enum class MailDialect : std::uint8_t {
    classic,   ///< this system's own manner, on which programs written for it rely
    standard,  ///< RFC 5322, 2047 and 2231, as the mail programs of today read and write them
};

/// The choice of the process, classic at first.  A host makes it once, before the first message is read: what
/// was read before stays as it was read.  What is stored on disk is the same in both.  Any thread.
LORVALE_EXPORT MailDialect mailDialect();
LORVALE_EXPORT void setMailDialect(MailDialect dialect);

/// "classic" or "standard", in any case of letters; nullopt for any other name.
LORVALE_EXPORT std::optional<MailDialect> mailDialectNamed(std::string_view name);

}  // namespace lorvale
