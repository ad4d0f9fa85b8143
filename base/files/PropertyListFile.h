#pragma once
#include <sys/types.h>

#include <optional>
#include <string>

#include "base/files/FileSystem.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

/// The property list in a file, XML or binary.  nullopt, with the reason in `status`, when the file is missing
/// (ENOENT), cannot be read, or holds no property list (EBADMSG).
std::optional<PropertyList> readPropertyListFile(const std::string& path, FileStatus* status = nullptr);

/// Writes XML so that a crash shows the old file or the new one.  A value that could not be read again, null or
/// beyond the limits of property lists, is refused (EINVAL) and leaves the file as it was.
FileStatus writePropertyListFile(const std::string& path, const PropertyList& value, mode_t permissions = 0666);

}  // namespace lorvale
