#include "base/files/PropertyListFile.h"

#include <cerrno>

namespace lorvale {

std::optional<PropertyList> readPropertyListFile(const std::string& path, FileStatus* status) {
    const auto bytes = FileSystem::current().readFile(path, status);
    if (!bytes) return std::nullopt;
    auto value = PropertyList::parse(*bytes);
    if (!value && status != nullptr) *status = FileStatus(EBADMSG, "read " + path + ": no property list");
    return value;
}

FileStatus writePropertyListFile(const std::string& path, const PropertyList& value, mode_t permissions) {
    return writeFileAtomically(path, value.xml(), permissions);
}

}  // namespace lorvale
