#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/files/PosixFileSystem.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {

/// What a change throws at which the disk dies.  No std::exception, so that no handler for failures takes it
/// for one.
struct SimulatedCrash {};

/// The real disk with faults to switch on.  While it lives it is FileSystem::current().  It works on the files
/// of a test's temporary folder as they are and keeps beside that a journal of what no sync has made safe:
///
///     for (int allowed = 0, done = 0; !done; ++allowed) {
///         const TemporaryFolder folder;
///         writeFile(folder / "box", old);              // before the disk is there: counts as safe
///         FailingFileSystem disk(seed + allowed);
///         disk.dieAtChange(allowed);
///         done = disk.survives([&] { addLetter(folder / "box"); });
///         disk.losePower();
///         EXPECT_THAT(readFile(folder / "box"), AnyOf(old, whole));
///     }
///
/// A change is a call that changes something or syncs: openForWriting (where it makes or empties a file),
/// write, truncate, sync, syncWithOthers, rename, link, symbolicLink, remove, makeDirectory, setPermissions,
/// setOwner, syncFolder.  Of a power loss each write since the file's last sync may be kept, lost or torn,
/// whatever became of the others; the names made, moved and removed since their folder's last sync are lost
/// from some moment on (a journal on disk keeps their order).  One thread at a time.
class FailingFileSystem : public PosixFileSystem {
public:
    explicit FailingFileSystem(std::uint64_t seed = 1);
    ~FailingFileSystem() override;

    /// The n-th change from now on (from 0) throws SimulatedCrash; a write may do a part of its work first.
    /// Every later change fails with EIO, so that destructors that tidy up change nothing.
    void dieAtChange(int n);
    /// The changes from the n-th on fail with this errno (ENOSPC: the disk is full), but for removals and
    /// closes.
    void failFromChange(int n, int code);
    /// What happens at the change at which the disk dies, instead of the throw.
    void onDeath(std::function<void()> death) { _onDeath = std::move(death); }

    /// Changes since the faults were set or the disk was made.
    int changes() const { return _changes; }
    /// Runs `work`; false when the disk died in it.
    bool survives(const std::function<void()>& work);

    /// Brings the files into a state that they may have after the power went.  What is left counts as safe
    /// then.
    void losePower();

    std::unique_ptr<WritableFile> openForWriting(const std::string& path, WriteMode mode, mode_t permissions,
                                                 FileStatus* status) override;
    FileStatus rename(const std::string& from, const std::string& to) override;
    FileStatus link(const std::string& from, const std::string& to) override;
    FileStatus symbolicLink(const std::string& target, const std::string& path) override;
    FileStatus remove(const std::string& path) override;
    FileStatus makeDirectory(const std::string& path, mode_t permissions) override;
    FileStatus setPermissions(const std::string& path, mode_t permissions) override;
    FileStatus setOwner(const std::string& path, uid_t owner, gid_t group) override;
    FileStatus syncFolder(const std::string& folder) override;

private:
    class File;
    friend class File;
    using FileID = std::pair<std::uint64_t, std::uint64_t>;  // device and inode

    struct Write {
        std::uint64_t offset;
        std::string bytes;
        std::optional<std::uint64_t> newSize;  // a truncation instead of a write
    };
    struct Unsynced {
        std::string safe;           // the bytes at the last sync
        std::vector<Write> writes;  // since
        std::string keptAs;         // a name of ours for the file, good whatever becomes of its own
    };
    struct NameChange {
        std::vector<std::string> folders;
        std::function<void()> undo;
    };

    /// Counts one change: throws or answers a failure if its time has come.  `isRemoval`: works on a full disk.
    FileStatus change(const std::string& path, bool isRemoval = false);
    bool diesNow() const { return !_dead && _changes == _dieAt; }
    void keepSafeBytes(const std::string& path);
    /// Another name for a file, under which it can come back; empty for a directory.
    std::string putAside(const std::string& path);
    void noteNameChange(std::vector<std::string> folders, std::function<void()> undo);
    void loseWrites(Unsynced& file);

    FileSystem* const _previous;
    TemporaryFolder _aside;
    int _asideCount = 0;
    std::mt19937_64 _random;
    std::map<FileID, Unsynced> _unsynced;
    std::vector<NameChange> _nameChanges;
    int _changes = 0;
    int _dieAt = -1, _failFrom = -1, _failCode = 0;
    bool _dead = false;
    std::function<void()> _onDeath = [] { throw SimulatedCrash(); };
};

/// How work on files may be cut off.
enum class CutOff { isKilled, powerGoes, diskIsFull };
void PrintTo(CutOff way, std::ostream* out);
inline constexpr CutOff kCutOffs[] = {CutOff::isKilled, CutOff::powerGoes, CutOff::diskIsFull};

/// Runs `work` in a forked child that is cut off at its n-th change of a file, from 0: no destructor runs, no
/// buffer is flushed, or from there on there is no room.  True when the work ended before that.  Throws
/// std::runtime_error when the child ended in any other way.  Not for a process with other threads.
bool survivesCutOff(CutOff way, int n, const std::function<void()>& work);
inline bool survivesKillAtChange(int n, const std::function<void()>& work) {
    return survivesCutOff(CutOff::isKilled, n, work);
}

}  // namespace lorvale::testing
