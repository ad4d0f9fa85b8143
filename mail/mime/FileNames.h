#pragma once
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "lorvale/body/mime_body.h"

namespace lorvale {

inline constexpr std::string_view kNamelessFile = "mime-attachment";

/// A name from a message as the name of a file in a directory: without slashes and zero bytes, none of the
/// names that mean a directory, and of a length that file systems take.
std::string safeFilename(std::string_view name);

/// What the extension of a file of this type should be; nullopt to leave the name as it is.
std::optional<std::string> extensionForType(std::span<const MimeFileType> types,
                                            const std::optional<std::string>& type,
                                            const std::optional<std::string>& subtype, std::string_view name);

/// The rows of a file "MimeFileTypes": "type/subtype extension...", with "#" in front of remarks.
std::vector<MimeFileType> fileTypesInText(std::string_view text);

}  // namespace lorvale
