#include "mail/stores/StoreLock.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>

#include "base/files/Descriptor.h"
#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "base/platform/FullUserName.h"
#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/user_interface.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

// A line of names is far shorter; a file that is not may be anything.
constexpr std::size_t kLongestLockFile = 4096;
// "inbox.lock.47111.tmp", with the process and a number.
constexpr std::string_view kUnfinished = ".tmp";

/// Text from a file for a log line or an alert.
std::string showable(std::string_view bytes) {
    auto text = decodeLossy(bytes, StringEncoding::utf8);
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }, ' ');
    return std::string(trimmed(text));
}

std::string asField(std::string_view name) {
    std::string field(name);
    std::ranges::replace_if(
        field, [](char c) { return c == ',' || c == '\n' || c == '\r'; }, ' ');
    return field;
}

/// 0 for what is no number or none that a process can have.
int processNumber(std::string_view field) {
    field = trimmed(field);
    int number = 0;
    const auto result = std::from_chars(field.data(), field.data() + field.size(), number);
    return result.ec == std::errc() ? std::max(number, 0) : 0;
}

std::optional<Data> readLockFile(const std::string& lockPath) {
    const auto file = FileSystem::current().openForReading(lockPath);
    return file != nullptr ? file->read(0, kLongestLockFile) : std::nullopt;
}

bool isRunning(int process) {
    // EPERM means that the process is there but not ours to signal.
    return ::kill(process, 0) == 0 || errno != ESRCH;
}

bool isOfDeadProcess(const LockOwner& owner) {
    return owner.process > 0 && owner.host == asField(hostName()) && !isRunning(owner.process);
}

/// Takes away the lock file of a dead process.  Many processes may find it dead at once, and the slower ones
/// must not take away the lock that the quickest has made since.  So whoever wants to remove a lock file holds
/// the system's own lock on that very file, looks again whether it still has the name, and reads again who made
/// it: the file that was found dead may have given way to a new one before this one was opened.
bool removeStaleLock(const std::string& lockPath) {
    auto& files = FileSystem::current();
    const Descriptor stale(::open(lockPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info {};
    if (!stale || ::fstat(stale.get(), &info) != 0) return false;
    // Some network file systems have no such lock; then the looks at name and owner must do.
    if (::flock(stale.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return false;
    const auto named = files.attributes(lockPath);
    if (!named || named->device != info.st_dev || named->inode != info.st_ino) return false;
    const auto bytes = readLockFile(lockPath);
    if (!bytes || !isOfDeadProcess(parseLockFile(bytes->view()))) return false;
    const auto removed = files.remove(lockPath);
    if (!removed) log("%@", removed.text());
    return static_cast<bool>(removed);
}

/// Whether somebody may still be making a lock of this file.
bool mayBeInUse(const std::string& unfinished) {
    const auto bytes = readLockFile(unfinished);
    if (!bytes) return true;
    if (!bytes->view().ends_with('\n')) return false;  // half a line may name half a process
    const auto owner = parseLockFile(bytes->view());
    return owner.process > 0 && (owner.host != asField(hostName()) || isRunning(owner.process));
}

/// By the holder of the lock: even a living process could not get it now, and so loses nothing.
void removeUnfinishedLockFiles(const std::string& lockPath) {
    for (const auto& file : unfinishedLockFiles(lockPath)) {
        if (mayBeInUse(file)) continue;
        if (const auto removed = FileSystem::current().remove(file); !removed) log("%@", removed.text());
    }
}

bool askWhetherToOpen(const std::string& lockPath, const std::string& mailbox, const LockOwner& owner) {
    const auto message = formatText(
        LVLocalizedString("The mailbox %@ is currently locked by %@ on host %@. If you open a mailbox that "
                          "already is in use, you may damage its contents.",
                          "Alert on opening a locked mailbox: mailbox, user, host"),
        mailbox, showable(owner.user), showable(owner.host));
    auto& interface = currentUserInterface();
    switch (interface.runAlertPanel(LVLocalizedString("Open"), message, LVLocalizedString("Open Anyway"),
                                    LVLocalizedString("Don't Open"), LVLocalizedString("Quit"))) {
        case AlertChoice::defaultButton: {
            const auto removed = FileSystem::current().remove(lockPath);
            if (!removed) log("%@", removed.text());
            return true;
        }
        case AlertChoice::otherButton:
            interface.terminate();
            break;
        case AlertChoice::alternateButton:
            break;
    }
    return false;
}

}  // namespace

LockOwner parseLockFile(std::string_view bytes) {
    const auto fields = split(bytes, ',');
    LockOwner owner;
    owner.host = fields[0];
    if (fields.size() > 1) owner.user = fields[1];
    if (fields.size() > 3) owner.process = processNumber(fields[3]);
    return owner;
}

std::string lockFileLine() {
    return formatText("%@,%@,%@ (Lorvale version %@),%d\n", asField(hostName()), asField(fullUserName()),
                      asField(processName()), Message::frameworkVersion(), ::getpid());
}

std::vector<std::string> unfinishedLockFiles(const std::string& lockPath) {
    const auto folder = folderOf(lockPath), start = std::string(lastPathComponent(lockPath)) + '.';
    auto names = FileSystem::current().namesInFolder(folder).value_or(std::vector<std::string>());
    std::erase_if(names, [&](std::string_view name) {
        if (!name.starts_with(start) || !name.ends_with(kUnfinished)) return true;
        name.remove_prefix(start.size());
        return name.find_first_not_of("0123456789") != name.size() - kUnfinished.size();
    });
    for (auto& name : names) name = stringByAppendingPathComponent(folder, name);
    return names;
}

bool createLockFile(const std::string& lockPath) {
    auto& files = FileSystem::current();
    const auto temporary = makeUniqueFilePath(lockPath + std::string(kUnfinished));
    FileStatus status;
    const auto file = files.openForWriting(temporary, WriteMode::createNew, 0600, &status);
    if (file == nullptr) {
        debugLog("%@", status.text());
        return false;
    }
    status = file->write(lockFileLine());
    if (status) status = file->sync();
    if (status) status = file->close();
    const bool locked = status && files.link(temporary, lockPath);
    if (!status) log("%@", status.text());
    if (const auto removed = files.remove(temporary); !removed) log("%@", removed.text());
    if (locked) removeUnfinishedLockFiles(lockPath);
    return locked;
}

bool shouldOpenDespiteLockFile(const std::string& lockPath) {
    const auto bytes = readLockFile(lockPath);
    if (!bytes) return false;
    const auto owner = parseLockFile(bytes->view());
    if (isOfDeadProcess(owner)) return removeStaleLock(lockPath);
    const auto mailbox = abbreviateWithTilde(folderOf(lockPath));
    if (!Defaults::sharedInstance().canUseWindowKit()) {
        log("The mailbox %@ is currently locked by %@ on host %@", mailbox, showable(owner.user),
            showable(owner.host));
        return false;
    }
    return askWhetherToOpen(lockPath, mailbox, owner);
}

}  // namespace lorvale
