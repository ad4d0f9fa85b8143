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
    const auto xml = value.xml();
    if (xml.empty()) return FileStatus(EINVAL, "write " + path + ": the value has no form as a file");
    return writeFileAtomically(path, xml, permissions);
}

}  // namespace lorvale
