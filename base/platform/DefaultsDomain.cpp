#include "base/platform/DefaultsDomain.h"

#include <cerrno>
#include <utility>

#include "base/files/PathUtils.h"
#include "base/files/PropertyListFile.h"
#include "lorvale/platform/log.h"

namespace lorvale {

const PropertyList* DefaultsDomain::find(std::string_view key) const {
    if (const auto change = _changes.find(key); change != _changes.end())
        return change->second.value ? &*change->second.value : nullptr;
    const auto found = _values.find(key);
    return found == _values.end() ? nullptr : &found->second;
}

void DefaultsDomain::change(std::string_view key, std::optional<PropertyList> value) {
    _changes.insert_or_assign(std::string(key), Change{std::move(value), ++_lastChange});
}

void DefaultsDomain::load(Values values) {
    _values = std::move(values);
    _isLoaded = true;
}

void DefaultsDomain::wasWritten(Values values, const Changes& written) {
    load(std::move(values));
    for (const auto& [key, change] : written) {
        const auto found = _changes.find(key);
        if (found != _changes.end() && found->second.number == change.number) _changes.erase(found);
    }
}

DefaultsDomain::Values readDefaultsFile(const std::string& path, FileStatus& status) {
    const auto file = readPropertyListFile(path, &status);
    if (status.code() == ENOENT) {
        status = {};
        return {};
    }
    const auto* const dictionary = file ? file->get<PropertyList::Dictionary>() : nullptr;
    if (file && dictionary == nullptr) status = FileStatus(EBADMSG, "read " + path + ": no dictionary");
    if (dictionary == nullptr) {
        log("Could not %@", status.text());
        return {};
    }
    return *dictionary;
}

std::optional<DefaultsDomain::Values> updateDefaultsFile(
    const std::string& path, const DefaultsDomain::Changes& changes,
    const std::function<void(DefaultsDomain::Values&)>& edit) {
    FileStatus status;
    auto values = readDefaultsFile(path, status);
    if (changes.empty() && !edit) return values;
    if (status.code() == EBADMSG)
        status = replaceFile(path, uniquePath(path + ".damaged"));
    else if (status)
        status = makeDirectories(folderOf(path), 0700);
    for (const auto& [key, change] : changes) {
        if (change.value)
            values.insert_or_assign(key, *change.value);
        else
            values.erase(key);
    }
    if (edit) edit(values);
    // Settings may hold passwords: nobody else reads them.
    if (status) status = writePropertyListFile(path, PropertyList(values), 0600);
    if (status) return values;
    log("The settings were not saved: %@", status.text());
    return std::nullopt;
}

}  // namespace lorvale
