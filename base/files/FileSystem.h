#pragma once
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/values/data.h"

namespace lorvale {

/// How an operation on files ended: true for success, else the errno and a text for the log that names the
/// operation and the path ("rename /a/b to /a/c: No such file or directory").
class [[nodiscard]] FileStatus {
public:
    FileStatus() = default;
    FileStatus(int code, std::string text) : _code(code), _text(std::move(text)) {}
    /// From the errno of the call that just failed.
    static FileStatus failed(std::string_view operation, const std::string& path);

    explicit operator bool() const { return _code == 0; }
    int code() const { return _code; }
    const std::string& text() const { return _text; }

private:
    int _code = 0;
    std::string _text;
};

struct FileAttributes {
    std::int64_t size = 0;      ///< bytes
    std::int64_t modified = 0;  ///< seconds since 1970
    std::uint32_t modifiedNanoseconds = 0;
    std::int64_t changed = 0;  ///< the same for bytes, permissions, owner and names, which no program can set
    std::uint32_t changedNanoseconds = 0;
    mode_t permissions = 0;  ///< the lower twelve bits
    uid_t owner = 0;
    gid_t group = 0;
    bool isRegular = false, isDirectory = false, isLink = false;
    std::uint64_t device = 0, inode = 0;  ///< together the identity of the file behind a path

    bool isSameFileAs(const FileAttributes& other) const {
        return device == other.device && inode == other.inode;
    }
};

/// One file open for reading at any place.  It stays the same file whatever becomes of its name.  May be used
/// by several threads.
class ReadableFile {
public:
    virtual ~ReadableFile() = default;
    /// Reads into a buffer, and answers how much: all of it, less at the end of the file; nullopt for a
    /// failure.
    virtual std::optional<std::size_t> readInto(std::span<char> buffer, std::uint64_t offset) = 0;
    /// Of the open file; nullopt for a failure.
    virtual std::optional<FileAttributes> attributes() = 0;

    /// The bytes of the range, fewer at the end of the file; nullopt for a failure.
    std::optional<Data> read(std::uint64_t offset, std::size_t length);
    std::uint64_t size();
};

/// One file open for writing.  write() appends at the position, which starts at 0 (at the end for
/// WriteMode::append).  What no sync() has made safe may be lost or torn by a crash.  One thread at a time.
/// Destroying it without close() closes the file; errors are then lost, so a writer that cares closes.
class WritableFile {
public:
    virtual ~WritableFile() = default;
    virtual FileStatus write(std::string_view bytes) = 0;  ///< all of them, or a failure
    virtual FileStatus seek(std::uint64_t offset) = 0;
    virtual FileStatus seekToEnd() = 0;
    virtual std::uint64_t position() const = 0;
    virtual FileStatus truncate(std::uint64_t size) = 0;
    virtual FileStatus sync() = 0;   ///< returns when the bytes are on disk
    virtual FileStatus close() = 0;  ///< once; nothing may follow
    /// sync() for all files on the same disk that were written since this one was opened, closed ones included:
    /// one wait where each of many would take one.
    virtual FileStatus syncWithOthers() = 0;
};

enum class WriteMode {
    truncate,   ///< made if missing, emptied if there
    createNew,  ///< fails with EEXIST if anything stands at the path
    keep,       ///< made if missing, its bytes kept, position 0
    append,     ///< made if missing, its bytes kept, position at the end
};

/// The one seam through which the mail half changes files, so that a test can put a failing disk there.
/// Callers use FileSystem::current() for each change and never the OS's calls.  Paths are taken as they are.
/// Every operation may be called by any thread.
class FileSystem {
public:
    virtual ~FileSystem() = default;

    /// The real disk, until a test sets another.
    static FileSystem& current();
    /// Borrowed until the next call; null brings the real disk back.  Answers what was set before (or null).
    static FileSystem* setCurrent(FileSystem* fileSystem);
    static FileSystem& real();

    // Changes.  `permissions` are subject to the umask.
    virtual std::unique_ptr<WritableFile> openForWriting(const std::string& path, WriteMode mode,
                                                         mode_t permissions, FileStatus* status = nullptr) = 0;
    /// Replaces a file at `to` in one step: another process sees the old one or the new one.
    virtual FileStatus rename(const std::string& from, const std::string& to) = 0;
    /// A second name for a file; fails with EEXIST if `to` is there.
    virtual FileStatus link(const std::string& from, const std::string& to) = 0;
    virtual FileStatus symbolicLink(const std::string& target, const std::string& path) = 0;
    /// A file, a symbolic link (not what it points to) or an empty directory.
    virtual FileStatus remove(const std::string& path) = 0;
    virtual FileStatus makeDirectory(const std::string& path, mode_t permissions) = 0;
    virtual FileStatus setPermissions(const std::string& path, mode_t permissions) = 0;
    virtual FileStatus setOwner(const std::string& path, uid_t owner, gid_t group) = 0;
    /// Makes the names in a folder durable: returns when renames, links and removals in it are on disk.
    virtual FileStatus syncFolder(const std::string& folder) = 0;

    // Reading.  A null `status` is fine; ENOENT in it tells a missing file from an unreadable one.
    /// The bytes of a regular file as they are now: a copy that no later change can touch.
    virtual std::optional<Data> readFile(const std::string& path, FileStatus* status = nullptr) = 0;
    /// The same without a copy, as a private read-only mapping.  Replacing the file by rename leaves the
    /// mapping alone, and so it is a snapshot as long as every writer does that, as all writers of this
    /// library do.  Hazard: bytes that a foreign program overwrites in place may show through, and if it
    /// shortens the file, reading behind the new end kills the process (SIGBUS).  Where foreign programs
    /// write into a file (a mail spool), use readFile().
    virtual std::optional<Data> mapFile(const std::string& path, FileStatus* status = nullptr) = 0;
    virtual std::unique_ptr<ReadableFile> openForReading(const std::string& path,
                                                         FileStatus* status = nullptr) = 0;
    /// Follows symbolic links; nullopt when nothing is there or it cannot be looked at.
    virtual std::optional<FileAttributes> attributes(const std::string& path) = 0;
    /// Of the link itself.
    virtual std::optional<FileAttributes> linkAttributes(const std::string& path) = 0;
    virtual std::optional<std::string> readLink(const std::string& path) = 0;
    /// The names in a folder without "." and "..", sorted; nullopt when it cannot be read.
    virtual std::optional<std::vector<std::string>> namesInFolder(const std::string& folder) = 0;

    bool exists(const std::string& path) { return attributes(path).has_value(); }
    bool isDirectory(const std::string& path);
};

// What is built from these operations; each works on FileSystem::current().

/// Writes a file so that a crash shows the old bytes or the new ones, whole: a new file beside it, synced,
/// renamed over it, the folder synced.  A symbolic link at `path` stays and its target is replaced.  An
/// existing file keeps its permissions, owner and group (see takeAccessOf()), a new one gets `permissions`.  On
/// failure nothing is left behind.
FileStatus writeFileAtomically(const std::string& path, std::string_view bytes, mode_t permissions = 0666);

/// The last steps of such a write for a caller that filled and synced `from` itself: renames and syncs the
/// folder.
FileStatus replaceFile(const std::string& from, const std::string& to);

/// Gives a file that is to replace another, and that only its owner can read so far, the owner and group of
/// that other, and these permissions.  Only some processes may give a file away: where the group cannot be
/// kept, the permissions of the group go, since they would let in strangers.
FileStatus takeAccessOf(const FileAttributes& other, const std::string& path, mode_t permissions);

/// Where a path leads when its last component is a symbolic link, also one to a missing file; the path itself
/// otherwise, and for a circle.
std::string followLinks(const std::string& path);

/// Makes a directory and those above it; one that is there already is success.
FileStatus makeDirectories(const std::string& path, mode_t permissions = 0777);

/// Copies a regular file's bytes in blocks; the new file is truncated first, and synced.
FileStatus copyFile(const std::string& from, const std::string& to, mode_t permissions);

/// Appends the whole of the file at `path` to `file` at its position.
FileStatus copyInto(WritableFile& file, const std::string& path);

/// A path beside `path` that nothing has used: "path.PID-N.tmp".
std::string temporaryPathBeside(const std::string& path);

/// "/a" for "/a/b", "." for "b", "/" for "/".
std::string folderOf(std::string_view path);

}  // namespace lorvale
