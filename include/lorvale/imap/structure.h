#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/imap/value.h"
#include "lorvale/message/headers.h"

namespace lorvale {

/// One part of a message as its server describes it (BODYSTRUCTURE, RFC 3501, section 7.4.2), so that a message
/// can be listed, and a part of it fetched, without the rest.
struct LORVALE_EXPORT IMAPBodyPart {
    using Parameters = std::map<std::string, std::string, std::less<>>;  ///< by lower-case name; decoded

    /// What fetchSection() calls it, "1.2"; empty for several parts as a whole.
    std::string section;
    std::string type, subtype;  ///< in lower case
    Parameters parameters;
    std::string contentID;
    std::string description;  ///< decoded
    std::string encoding;     ///< in lower case: "base64"
    std::uint32_t size = 0;   ///< in bytes, encoded
    std::uint32_t lines = 0;  ///< of a text or a message
    std::string disposition;  ///< in lower case; empty: none is told
    Parameters dispositionParameters;
    std::vector<IMAPBodyPart> parts;  ///< of a multipart; or the one body of a message in this part
    CachedHeaders envelope;           ///< of that message

    bool isMultipart() const { return type == "multipart"; }
    std::string fileName() const;  ///< empty for a part without
};

/// The parts that a structure tells of; nullopt for what is none.
LORVALE_EXPORT std::optional<IMAPBodyPart> bodyPartOfStructure(const IMAPValue& structure);

}  // namespace lorvale
