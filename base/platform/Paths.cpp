#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "base/files/FileSystem.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/paths.h"

namespace lorvale {

namespace {

/// One thing that a host or a test may redirect.
class Setting {
public:
    std::string value() const {
        const MutexLock lock(_mutex);
        return _value;
    }
    void set(std::string_view value) {
        const MutexLock lock(_mutex);
        _value = value;
    }

private:
    mutable Mutex _mutex;
    std::string _value LORVALE_GUARDED_BY(_mutex);
};

struct Settings {
    Setting home, temporary, spool, resources, configuration, root, login, host, process;
};

Settings& settings() {
    static Settings& instance = *new Settings;  // never destroyed: late threads may still ask
    return instance;
}

std::string withoutFinalSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    return std::string(path);
}

std::string environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : withoutFinalSlashes(value);
}

struct PasswordEntry {
    std::string login, home;
};

/// The entry of a user by name, or of this process's user for an empty name.
std::optional<PasswordEntry> passwordEntry(const std::string& name) {
    std::vector<char> buffer(1024);
    for (;;) {
        passwd entry{};
        passwd* found = nullptr;
        const int result = name.empty()
                               ? ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found)
                               : ::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found);
        if (result == ERANGE && buffer.size() < (1u << 20)) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (found == nullptr) return std::nullopt;
        return PasswordEntry{entry.pw_name, withoutFinalSlashes(entry.pw_dir)};
    }
}

/// What was set, else what `fromSystem` says.
template <class FromSystem>
std::string setOr(const Setting& setting, FromSystem fromSystem) {
    auto set = setting.value();
    return set.empty() ? fromSystem() : set;
}

std::string joined(const std::string& folder, std::string_view name) {
    std::string path = folder == "/" ? folder : folder + '/';
    return path.append(name);
}

std::string withHomeForTilde(std::string_view path) {
    if (!path.starts_with('~')) return std::string(path);
    const auto end = std::min(path.find('/'), path.size());
    const auto rest = path.substr(end);
    std::string home;
    if (end == 1) {
        home = homeDirectory();
    } else if (const auto entry = passwordEntry(std::string(path.substr(1, end - 1)))) {
        home = entry->home;
    } else {
        return std::string(path);
    }
    return (home == "/" && !rest.empty() ? std::string() : home).append(rest);
}

/// Takes the last component off a path that is already standardised; false when there is none to take.
bool goUp(std::string& path) {
    if (path == "/") return true;  // the root is its own parent
    if (path.empty() || path == ".." || path.ends_with("/..")) return false;
    std::error_code error;
    if (std::filesystem::is_symlink(path, error)) {
        const auto real = std::filesystem::canonical(path, error);
        if (error) return false;
        path = real.string();
        if (path == "/") return true;
    }
    const auto slash = path.rfind('/');
    path = slash == std::string::npos ? std::string() : slash == 0 ? "/" : path.substr(0, slash);
    return true;
}

}  // namespace

std::string homeDirectory() {
    return setOr(settings().home, [] {
        if (auto home = environment("HOME"); !home.empty()) return home;
        const auto entry = passwordEntry({});
        return entry && !entry->home.empty() ? entry->home : std::string("/");
    });
}

void setHomeDirectory(std::string_view path) {
    settings().home.set(withoutFinalSlashes(path));
}

std::string temporaryDirectory() {
    return setOr(settings().temporary, [] {
        auto path = environment("TMPDIR");
        return path.empty() ? "/tmp" : path;
    });
}

void setTemporaryDirectory(std::string_view path) {
    settings().temporary.set(withoutFinalSlashes(path));
}

std::string spoolDirectory() {
    return setOr(settings().spool, [] {
        const auto file = environment("MAIL");
        return file.starts_with('/') ? folderOf(file) : std::string("/var/mail");
    });
}

void setSpoolDirectory(std::string_view path) {
    settings().spool.set(withoutFinalSlashes(path));
}

std::string resourceDirectory() {
    return setOr(settings().resources, [] {
        if (auto path = environment("LORVALE_RESOURCES"); !path.empty()) return path;
        const std::string installed = LORVALE_RESOURCE_DIR;
        // The tests and an uninstalled build find the resources where they are edited.
        return FileSystem::current().isDirectory(installed) ? installed : LORVALE_SOURCE_RESOURCE_DIR;
    });
}

void setResourceDirectory(std::string_view path) {
    settings().resources.set(withoutFinalSlashes(path));
}

std::optional<std::string> pathForResource(std::string_view name, std::string_view type) {
    auto path = joined(resourceDirectory(), name);
    if (!type.empty()) path.append(".").append(type);
    if (!FileSystem::current().exists(path)) return std::nullopt;
    return path;
}

std::string configurationDirectory() {
    return setOr(settings().configuration, [] {
        // A redirected home must not lead back to the real user's settings through the environment.
        auto base = settings().home.value().empty() ? environment("XDG_CONFIG_HOME") : std::string();
        if (!base.starts_with('/')) base = joined(homeDirectory(), ".config");
        return joined(base, "lorvale");
    });
}

void setConfigurationDirectory(std::string_view path) {
    settings().configuration.set(withoutFinalSlashes(path));
}

std::string rootDirectory() {
    return setOr(settings().root, [] { return std::string("/"); });
}

void setRootDirectory(std::string_view path) {
    settings().root.set(withoutFinalSlashes(path));
}

std::string standardizePath(std::string_view path) {
    if (path.empty()) return {};
    const auto expanded = withHomeForTilde(path);
    std::string result = expanded.starts_with('/') ? "/" : "";
    for (std::size_t start = 0; start < expanded.size();) {
        const auto end = std::min(expanded.find('/', start), expanded.size());
        const auto component = std::string_view(expanded).substr(start, end - start);
        start = end + 1;
        if (component.empty() || component == ".") continue;
        if (component == ".." && goUp(result)) continue;
        if (!result.empty() && !result.ends_with('/')) result += '/';
        result += component;
    }
    return result.empty() ? "." : result;
}

std::string abbreviateWithTilde(std::string_view path) {
    const auto home = homeDirectory();
    if (home == "/" || !path.starts_with(home)) return std::string(path);
    const auto rest = path.substr(home.size());
    if (!rest.empty() && !rest.starts_with('/')) return std::string(path);
    return std::string("~").append(rest);
}

namespace {

/// Remembered, for it is asked of every message that is listed, and the system reads a file each time.
std::string loginOfProcess() {
    struct Known {
        Mutex mutex;
        uid_t user LORVALE_GUARDED_BY(mutex) = 0;
        std::string login LORVALE_GUARDED_BY(mutex);  // empty: not known yet
    };
    static Known& known = *new Known;  // never destroyed: late threads may still ask
    const MutexLock lock(known.mutex);
    if (!known.login.empty() && known.user == ::geteuid()) return known.login;
    known.user = ::geteuid();
    const auto entry = passwordEntry({});
    known.login = entry ? entry->login : environment("LOGNAME");
    if (known.login.empty()) known.login = std::to_string(known.user);
    return known.login;
}

}  // namespace

std::string loginName() {
    return setOr(settings().login, loginOfProcess);
}

void setLoginName(std::string_view name) {
    settings().login.set(name);
}

std::string hostName() {
    return setOr(settings().host, [] {
        std::array<char, 256> name{};
        const bool known = ::gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0';
        return std::string(known ? name.data() : "localhost");
    });
}

void setHostName(std::string_view name) {
    settings().host.set(name);
}

std::string processName() {
    return setOr(settings().process, [] { return std::string(::program_invocation_short_name); });
}

void setProcessName(std::string_view name) {
    settings().process.set(name);
}

}  // namespace lorvale
