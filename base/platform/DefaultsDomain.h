#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "base/files/FileSystem.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

/// The settings of one domain: what its file held when it was last read, and what was set or removed since and
/// is not written yet.  Not locked; UserDefaults guards it.
class DefaultsDomain {
public:
    using Values = PropertyList::Dictionary;
    /// A value that was set, or none for one that was removed.  The number tells a change from a later one.
    struct Change {
        std::optional<PropertyList> value;
        std::uint64_t number = 0;
    };
    using Changes = std::map<std::string, Change, std::less<>>;

    explicit DefaultsDomain(std::string name) : _name(std::move(name)) {}

    const std::string& name() const { return _name; }
    const PropertyList* find(std::string_view key) const;
    void change(std::string_view key, std::optional<PropertyList> value);
    const Changes& changes() const { return _changes; }

    bool isLoaded() const { return _isLoaded; }
    void load(Values values);
    /// The file holds `values` now, with `written` among them.  A key that was changed again meanwhile keeps
    /// its change for the next time.
    void wasWritten(Values values, const Changes& written);

private:
    std::string _name;
    Values _values;
    Changes _changes;
    std::uint64_t _lastChange = 0;
    bool _isLoaded = false;
};

/// The values in a domain's file; none for a missing file.  A file that cannot be read or is no dictionary is
/// logged and gives no values, and `status` says why.
DefaultsDomain::Values readDefaultsFile(const std::string& path, FileStatus& status);

/// Reads the file again, so that what other processes wrote since stays, puts the changes in, gives it to
/// `edit` where there is one, and writes it.  nullopt, with a line in the log, when that failed: the file is
/// then as it was.  A damaged file is kept as "path.damaged", or under a name like that, before a new one takes
/// its place.
std::optional<DefaultsDomain::Values> updateDefaultsFile(
    const std::string& path, const DefaultsDomain::Changes& changes,
    const std::function<void(DefaultsDomain::Values&)>& edit = {});

}  // namespace lorvale
