#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

/// The user's settings: values by key, looked up along a search list of domains.  First come the arguments of
/// this run, then the application domains in the order of the list, last the registered values.  Each
/// application domain is a property list file "NAME.plist" in a folder, read when first needed, written
/// atomically by synchronize().  Values set here are seen at once; other processes' changes at synchronize().
/// Any thread.
class LORVALE_EXPORT UserDefaults {
public:
    /// The process's defaults, with files in the configuration directory and the process name as the first
    /// domain of the list, the one that is written to.
    static UserDefaults& standard();

    /// `folder` empty: configurationDirectory(), asked anew each time files are touched.
    explicit UserDefaults(std::string domain, std::string folder = {});
    ~UserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    /// Application domains, in the order they are asked.
    std::vector<std::string> searchList() const;
    /// Appends a domain to the search list unless it is there.
    void addSuiteNamed(std::string_view domain);
    void removeSuiteNamed(std::string_view domain);

    /// The first value along the search list.  nullopt: no domain has one.
    std::optional<PropertyList> objectForKey(std::string_view key) const;
    /// Text; also the text of a number, a truth value or a date.
    std::optional<std::string> stringForKey(std::string_view key) const;
    /// A number or a truth value, or a text that is a number; else 0.
    std::int64_t integerForKey(std::string_view key) const;
    double realForKey(std::string_view key) const;
    /// A truth value, a number other than 0, or a text that says so ("YES", "true", "1"); else false.
    bool boolForKey(std::string_view key) const;
    /// The texts of an array; nullopt when it is none.
    std::optional<std::vector<std::string>> stringArrayForKey(std::string_view key) const;
    /// A dictionary; nullopt when it is none.
    std::optional<PropertyList> dictionaryForKey(std::string_view key) const;

    /// Set in the first application domain and written by the next synchronize().  A null value removes the
    /// key.
    void setObject(const PropertyList& value, std::string_view forKey);
    void setString(std::string_view value, std::string_view forKey);
    void setInteger(std::int64_t value, std::string_view forKey);
    void setBool(bool value, std::string_view forKey);
    void setBool(const void*, std::string_view) = delete;  ///< "NO" is a pointer, and would be true
    void removeObjectForKey(std::string_view key);

    /// Values of last resort; a later registration of a key wins.  `values` is a dictionary.
    void registerDefaults(const PropertyList& values);
    /// Values for this run only, in front of all others, as from "-o KEY=VALUE".
    void setArgument(std::string_view key, std::string_view value);
    void removeArguments();

    /// Writes what was set and reads what other processes wrote; keys that were not set here are taken from the
    /// file.  False, with a line in the log, when a file could not be written; the changes are kept for the
    /// next time.
    [[nodiscard]] bool synchronize();

    /// Changes values of the first application domain in one step among all processes: `change` gets what its
    /// file holds now, with what was set here on top, and what it makes of that is written before another
    /// process may write.  It runs under a lock: it calls neither this nor synchronize().  False, with a line
    /// in the log, when the file could not be written; nothing has changed then.
    using Change = std::function<void(PropertyList::Dictionary& values)>;
    [[nodiscard]] bool update(const Change& change);

private:
    class Implementation;
    std::unique_ptr<Implementation> _implementation;
};

}  // namespace lorvale
