#include "lorvale/platform/user_defaults.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/files/FileLock.h"
#include "base/platform/DefaultsDomain.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/paths.h"

namespace lorvale {

namespace {

/// Two processes that wrote settings in a folder at the same time would both read, both write, and the changes
/// of one would be lost.  A process that holds the lock for longer hangs, and the files are whole without it,
/// too.
constexpr std::chrono::seconds kPatience(2);

/// Only these have a form as text.
bool isText(const PropertyList& value) {
    return value.get<std::string>() || value.get<std::int64_t>() || value.get<double>() || value.get<bool>() ||
           value.get<Date>();
}

}  // namespace

class UserDefaults::Implementation {
public:
    Implementation(std::string domain, std::string folder) : _folder(std::move(folder)) {
        _domains.emplace_back(std::move(domain));
    }

    std::vector<std::string> searchList() const {
        const MutexLock lock(_mutex);
        std::vector<std::string> names;
        for (const auto& domain : _domains) names.push_back(domain.name());
        return names;
    }

    void addDomain(std::string_view name) {
        const MutexLock lock(_mutex);
        if (std::ranges::find(_domains, name, &DefaultsDomain::name) == _domains.end())
            _domains.emplace_back(std::string(name));
    }

    void removeDomain(std::string_view name) {
        const MutexLock lock(_mutex);
        // The first one stays: there must be a place to write to.
        const auto found = std::ranges::find(_domains.begin() + 1, _domains.end(), name, &DefaultsDomain::name);
        if (found != _domains.end()) _domains.erase(found);
    }

    std::optional<PropertyList> find(std::string_view key) {
        const MutexLock lock(_mutex);
        if (const auto found = _arguments.find(key); found != _arguments.end()) return found->second;
        for (auto& domain : _domains) {
            load(domain);
            if (const auto* const value = domain.find(key)) return *value;
        }
        if (const auto found = _registered.find(key); found != _registered.end()) return found->second;
        return std::nullopt;
    }

    void change(std::string_view key, std::optional<PropertyList> value) {
        const MutexLock lock(_mutex);
        _domains.front().change(key, std::move(value));
    }

    void registerValues(const PropertyList& values) {
        const MutexLock lock(_mutex);
        for (const auto& [key, value] : values.dictionary()) _registered.insert_or_assign(key, value);
    }

    void setArgument(std::string_view key, std::string_view value) {
        const MutexLock lock(_mutex);
        _arguments.insert_or_assign(std::string(key), PropertyList(std::string(value)));
    }

    void removeArguments() {
        const MutexLock lock(_mutex);
        _arguments.clear();
    }

    bool synchronize() {
        const MutexLock oneAtATime(_synchronizing);
        bool good = true;
        for (const auto& name : searchList()) good = synchronize(name, {}) && good;
        return good;
    }

    bool update(const Change& change) {
        const MutexLock oneAtATime(_synchronizing);
        return synchronize(searchList().front(), change);
    }

private:
    std::string pathOf(std::string_view domain) const {
        std::string path = _folder.empty() ? configurationDirectory() : _folder;
        return path.append("/").append(domain).append(".plist");
    }

    /// Reads a domain's file under the lock: whoever asks next needs its values too.
    void load(DefaultsDomain& domain) LORVALE_REQUIRES(_mutex) {
        if (domain.isLoaded()) return;
        FileStatus status;
        domain.load(readDefaultsFile(pathOf(domain.name()), status));
    }

    std::vector<DefaultsDomain>::iterator domainNamed(std::string_view name) LORVALE_REQUIRES(_mutex) {
        return std::ranges::find(_domains, name, &DefaultsDomain::name);
    }

    DefaultsDomain::Changes changesOf(std::string_view name) {
        const MutexLock lock(_mutex);
        const auto domain = domainNamed(name);
        return domain == _domains.end() ? DefaultsDomain::Changes() : domain->changes();
    }

    /// Touches the file without the lock on the values, so that nobody who reads a setting waits for the disk.
    bool synchronize(const std::string& name, const Change& edit) LORVALE_REQUIRES(_synchronizing) {
        const auto path = pathOf(name);
        const auto changes = changesOf(name);
        std::optional<DefaultsDomain::Values> values;
        if (changes.empty() && !edit) {
            values = updateDefaultsFile(path, changes);
        } else {
            static_cast<void>(makeDirectories(folderOf(path), 0700));  // told of when the file is written
            const auto others = FileLock::ofFolder(folderOf(path), kPatience);
            values = updateDefaultsFile(path, changes, edit);
        }
        if (!values) return false;
        const MutexLock lock(_mutex);
        if (const auto domain = domainNamed(name); domain != _domains.end())
            domain->wasWritten(std::move(*values), changes);
        return true;
    }

    const std::string _folder;
    Mutex _synchronizing;  // taken before _mutex, never after
    mutable Mutex _mutex;
    std::vector<DefaultsDomain> _domains LORVALE_GUARDED_BY(_mutex);  // never empty
    DefaultsDomain::Values _arguments LORVALE_GUARDED_BY(_mutex);
    DefaultsDomain::Values _registered LORVALE_GUARDED_BY(_mutex);
};

UserDefaults& UserDefaults::standard() {
    static UserDefaults& instance = *new UserDefaults(processName());  // never destroyed: late threads may ask
    return instance;
}

UserDefaults::UserDefaults(std::string domain, std::string folder)
    : _implementation(std::make_unique<Implementation>(std::move(domain), std::move(folder))) {}
UserDefaults::~UserDefaults() = default;

std::vector<std::string> UserDefaults::searchList() const {
    return _implementation->searchList();
}

void UserDefaults::addSuiteNamed(std::string_view domain) {
    _implementation->addDomain(domain);
}

void UserDefaults::removeSuiteNamed(std::string_view domain) {
    _implementation->removeDomain(domain);
}

std::optional<PropertyList> UserDefaults::objectForKey(std::string_view key) const {
    return _implementation->find(key);
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const {
    const auto value = objectForKey(key);
    if (!value || !isText(*value)) return std::nullopt;
    return value->string();
}

std::int64_t UserDefaults::integerForKey(std::string_view key) const {
    const auto value = objectForKey(key);
    return value ? value->integer() : 0;
}

double UserDefaults::realForKey(std::string_view key) const {
    const auto value = objectForKey(key);
    return value ? value->real() : 0;
}

bool UserDefaults::boolForKey(std::string_view key) const {
    const auto value = objectForKey(key);
    return value && value->boolean();
}

std::optional<std::vector<std::string>> UserDefaults::stringArrayForKey(std::string_view key) const {
    const auto value = objectForKey(key);
    if (!value || value->get<PropertyList::Array>() == nullptr) return std::nullopt;
    return value->strings();
}

std::optional<PropertyList> UserDefaults::dictionaryForKey(std::string_view key) const {
    auto value = objectForKey(key);
    if (value && value->get<PropertyList::Dictionary>() == nullptr) return std::nullopt;
    return value;
}

void UserDefaults::setObject(const PropertyList& value, std::string_view forKey) {
    _implementation->change(forKey, value.isNull() ? std::nullopt : std::optional(value));
}

void UserDefaults::setString(std::string_view value, std::string_view forKey) {
    _implementation->change(forKey, PropertyList(std::string(value)));
}

void UserDefaults::setInteger(std::int64_t value, std::string_view forKey) {
    _implementation->change(forKey, PropertyList(value));
}

void UserDefaults::setBool(bool value, std::string_view forKey) {
    _implementation->change(forKey, PropertyList(value));
}

void UserDefaults::removeObjectForKey(std::string_view key) {
    _implementation->change(key, std::nullopt);
}

void UserDefaults::registerDefaults(const PropertyList& values) {
    _implementation->registerValues(values);
}

void UserDefaults::setArgument(std::string_view key, std::string_view value) {
    _implementation->setArgument(key, value);
}

void UserDefaults::removeArguments() {
    _implementation->removeArguments();
}

bool UserDefaults::synchronize() {
    return _implementation->synchronize();
}

bool UserDefaults::update(const Change& change) {
    return _implementation->update(change);
}

}  // namespace lorvale
