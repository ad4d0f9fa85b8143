#include "base/files/FileSystem.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>

#include "base/files/PosixFileSystem.h"
#include "lorvale/values/format.h"

namespace lorvale {

namespace {

std::atomic<FileSystem*> replacement{nullptr};

constexpr std::size_t kCopyBlock = 1 << 20;

/// The new file of an atomic write, complete and on disk.  `old` is the file it will replace, if there is one.
FileStatus writeNewFile(const std::string& path, std::string_view bytes, mode_t permissions,
                        const std::optional<FileAttributes>& old) {
    FileStatus status;
    auto& files = FileSystem::current();
    const auto file = files.openForWriting(path, WriteMode::createNew, old ? 0600 : permissions, &status);
    if (file == nullptr) return status;
    if (old && !(status = takeAccessOf(*old, path, old->permissions))) return status;
    if (status = file->write(bytes); !status) return status;
    if (status = file->sync(); !status) return status;
    return file->close();
}

}  // namespace

FileStatus FileStatus::failed(std::string_view operation, const std::string& path) {
    const int code = errno != 0 ? errno : EIO;
    return {code, formatText("%@ %@: %@", operation, path, std::generic_category().message(code))};
}

std::optional<Data> ReadableFile::read(std::uint64_t offset, std::size_t length) {
    // The length is a wish: no memory for what is not there.
    const auto end = size();
    if (offset >= end) return Data();
    length = static_cast<std::size_t>(std::min<std::uint64_t>(length, end - offset));
    ByteBuffer buffer(length);
    const auto count = readInto({reinterpret_cast<char*>(buffer.reserve(length)), length}, offset);
    if (!count) return std::nullopt;
    buffer.commit(*count);
    return buffer.data();
}

std::uint64_t ReadableFile::size() {
    const auto found = attributes();
    return found ? static_cast<std::uint64_t>(found->size) : 0;
}

FileSystem& FileSystem::real() {
    static PosixFileSystem& disk = *new PosixFileSystem;  // never destroyed: late threads may still write
    return disk;
}

FileSystem& FileSystem::current() {
    auto* const set = replacement.load();
    return set != nullptr ? *set : real();
}

FileSystem* FileSystem::setCurrent(FileSystem* fileSystem) {
    return replacement.exchange(fileSystem);
}

bool FileSystem::isDirectory(const std::string& path) {
    const auto found = attributes(path);
    return found && found->isDirectory;
}

FileStatus writeFileAtomically(const std::string& path, std::string_view bytes, mode_t permissions) {
    auto& files = FileSystem::current();
    const auto place = followLinks(path);
    const auto old = files.attributes(place);
    const auto fresh = temporaryPathBeside(place);
    auto status = writeNewFile(fresh, bytes, permissions, old);
    if (status) status = files.rename(fresh, place);
    if (!status) {
        // The name is nobody else's, so nothing is lost; the first failure is the one to tell.
        static_cast<void>(files.remove(fresh));
        return status;
    }
    return files.syncFolder(folderOf(place));
}

FileStatus replaceFile(const std::string& from, const std::string& to) {
    auto& files = FileSystem::current();
    if (auto status = files.rename(from, to); !status) return status;
    return files.syncFolder(folderOf(to));
}

FileStatus takeAccessOf(const FileAttributes& other, const std::string& path, mode_t permissions) {
    auto& files = FileSystem::current();
    const auto own = files.attributes(path);
    if (!own) return FileStatus::failed("look at", path);
    const bool sameOwner = own->owner == other.owner, sameGroup = own->group == other.group;
    if (!sameOwner || !sameGroup) {
        // A user may give a file to another of his groups, though not to another user.
        if (!files.setOwner(path, other.owner, other.group) && !sameGroup &&
            !files.setOwner(path, own->owner, other.group))
            permissions &= ~mode_t{070};
    }
    // Opening took the umask into account, which the other file may once have escaped.
    return files.setPermissions(path, permissions);
}

std::string followLinks(const std::string& path) {
    auto& files = FileSystem::current();
    std::string place = path;
    for (int followed = 0; followed < 40; ++followed) {
        const auto target = files.readLink(place);
        if (!target) return place;
        place = target->starts_with('/') ? *target : folderOf(place) + '/' + *target;
    }
    return path;
}

FileStatus makeDirectories(const std::string& path, mode_t permissions) {
    auto& files = FileSystem::current();
    if (files.isDirectory(path)) return {};
    const auto parent = folderOf(path);
    if (parent != path)
        if (auto status = makeDirectories(parent, permissions); !status) return status;
    if (auto status = files.makeDirectory(path, permissions); !status) {
        // Another process may have been quicker.
        if (status.code() == EEXIST && files.isDirectory(path)) return {};
        return status;
    }
    return files.syncFolder(parent);
}

FileStatus copyInto(WritableFile& file, const std::string& path) {
    FileStatus status;
    const auto source = FileSystem::current().openForReading(path, &status);
    if (source == nullptr) return status;
    for (std::uint64_t offset = 0;;) {
        const auto block = source->read(offset, kCopyBlock);
        if (!block) return FileStatus::failed("read", path);
        if (block->empty()) return {};
        if (status = file.write(block->view()); !status) return status;
        offset += block->size();
    }
}

FileStatus copyFile(const std::string& from, const std::string& to, mode_t permissions) {
    FileStatus status;
    const auto file = FileSystem::current().openForWriting(to, WriteMode::truncate, permissions, &status);
    if (file == nullptr) return status;
    if (status = copyInto(*file, from); !status) return status;
    if (status = file->sync(); !status) return status;
    return file->close();
}

std::string temporaryPathBeside(const std::string& path) {
    static std::atomic<unsigned> counter{0};
    for (;;) {
        auto candidate = formatText("%@.%d-%u.tmp", path, ::getpid(), ++counter);
        if (!FileSystem::current().linkAttributes(candidate)) return candidate;
    }
}

std::string folderOf(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos) return ".";
    const auto folder = path.substr(0, slash);
    const auto end = folder.find_last_not_of('/');
    return end == std::string_view::npos ? "/" : std::string(folder.substr(0, end + 1));
}

}  // namespace lorvale
