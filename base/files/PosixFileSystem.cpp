#include "base/files/PosixFileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <new>
#include <utility>

#include "base/files/Descriptor.h"

namespace lorvale {

namespace {

void report(FileStatus* status, FileStatus outcome) {
    if (status != nullptr) *status = std::move(outcome);
}

FileStatus statusOf(int result, std::string_view operation, const std::string& path) {
    return result == 0 ? FileStatus() : FileStatus::failed(operation, path);
}

std::optional<FileAttributes> attributesOf(int result, const struct stat& info) {
    if (result != 0) return std::nullopt;
    FileAttributes attributes;
    attributes.size = info.st_size;
    attributes.modified = info.st_mtim.tv_sec;
    attributes.modifiedNanoseconds = static_cast<std::uint32_t>(info.st_mtim.tv_nsec);
    attributes.changed = info.st_ctim.tv_sec;
    attributes.changedNanoseconds = static_cast<std::uint32_t>(info.st_ctim.tv_nsec);
    attributes.permissions = info.st_mode & 07777;
    attributes.owner = info.st_uid;
    attributes.group = info.st_gid;
    attributes.isRegular = S_ISREG(info.st_mode);
    attributes.isDirectory = S_ISDIR(info.st_mode);
    attributes.isLink = S_ISLNK(info.st_mode);
    attributes.device = info.st_dev;
    attributes.inode = info.st_ino;
    return attributes;
}

class PosixWritableFile final : public WritableFile {
public:
    PosixWritableFile(Descriptor descriptor, std::string path)
        : _descriptor(std::move(descriptor)), _path(std::move(path)) {}

    FileStatus write(std::string_view bytes) override {
        while (!bytes.empty()) {
            const auto count =
                ::pwrite(_descriptor.get(), bytes.data(), bytes.size(), static_cast<off_t>(_position));
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return FileStatus::failed("write", _path);
            _position += static_cast<std::uint64_t>(count);
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return {};
    }
    FileStatus seek(std::uint64_t offset) override {
        if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()))
            return {EINVAL, "seek in " + _path + ": offset out of range"};
        _position = offset;
        return {};
    }
    FileStatus seekToEnd() override {
        struct stat info {};
        if (::fstat(_descriptor.get(), &info) != 0) return FileStatus::failed("seek to the end of", _path);
        _position = static_cast<std::uint64_t>(info.st_size);
        return {};
    }
    std::uint64_t position() const override { return _position; }
    FileStatus truncate(std::uint64_t size) override {
        return statusOf(::ftruncate(_descriptor.get(), static_cast<off_t>(size)), "truncate", _path);
    }
    FileStatus sync() override { return statusOf(::fsync(_descriptor.get()), "sync", _path); }
    FileStatus syncWithOthers() override { return statusOf(::syncfs(_descriptor.get()), "sync", _path); }
    FileStatus close() override {
        // Linux gives the descriptor back also when close() reports an error: never close it again.
        return statusOf(::close(_descriptor.release()), "close", _path);
    }

private:
    Descriptor _descriptor;
    const std::string _path;
    std::uint64_t _position = 0;
};

class PosixReadableFile final : public ReadableFile {
public:
    explicit PosixReadableFile(Descriptor descriptor) : _descriptor(std::move(descriptor)) {}

    std::optional<std::size_t> readInto(std::span<char> buffer, std::uint64_t offset) override {
        std::size_t done = 0;
        while (done < buffer.size()) {
            const auto count = ::pread(_descriptor.get(), buffer.data() + done, buffer.size() - done,
                                       static_cast<off_t>(offset + done));
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return std::nullopt;
            if (count == 0) break;
            done += static_cast<std::size_t>(count);
        }
        return done;
    }
    std::optional<FileAttributes> attributes() override {
        struct stat info {};
        return attributesOf(::fstat(_descriptor.get(), &info), info);
    }

private:
    const Descriptor _descriptor;
};

int flagsFor(WriteMode mode) {
    switch (mode) {
        case WriteMode::truncate:
            return O_CREAT | O_TRUNC;
        case WriteMode::createNew:
            return O_CREAT | O_EXCL;
        case WriteMode::keep:
        case WriteMode::append:
            break;
    }
    return O_CREAT;
}

/// A regular file open for reading, with its size; an empty descriptor and the reason otherwise.
Descriptor openRegular(const std::string& path, std::size_t& size, FileStatus* status) {
    Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info {};
    if (!descriptor || ::fstat(descriptor.get(), &info) != 0) {
        report(status, FileStatus::failed("open", path));
        return {};
    }
    if (!S_ISREG(info.st_mode)) {
        errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
        report(status, FileStatus::failed("open", path));
        return {};
    }
    size = static_cast<std::size_t>(info.st_size);
    return descriptor;
}

}  // namespace

std::unique_ptr<WritableFile> PosixFileSystem::openForWriting(const std::string& path, WriteMode mode,
                                                              mode_t permissions, FileStatus* status) {
    // Without O_NONBLOCK a FIFO of that name would hang us here.
    Descriptor descriptor(
        ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK | flagsFor(mode), permissions));
    if (!descriptor) {
        report(status, FileStatus::failed("open for writing", path));
        return nullptr;
    }
    auto file = std::make_unique<PosixWritableFile>(std::move(descriptor), path);
    auto outcome = mode == WriteMode::append ? file->seekToEnd() : FileStatus();
    const bool good = static_cast<bool>(outcome);
    report(status, std::move(outcome));
    return good ? std::move(file) : nullptr;
}

FileStatus PosixFileSystem::rename(const std::string& from, const std::string& to) {
    return statusOf(::rename(from.c_str(), to.c_str()), "rename " + from + " to", to);
}

FileStatus PosixFileSystem::link(const std::string& from, const std::string& to) {
    return statusOf(::link(from.c_str(), to.c_str()), "link " + from + " to", to);
}

FileStatus PosixFileSystem::symbolicLink(const std::string& target, const std::string& path) {
    return statusOf(::symlink(target.c_str(), path.c_str()), "make a symbolic link to " + target + " at", path);
}

FileStatus PosixFileSystem::remove(const std::string& path) {
    return statusOf(std::remove(path.c_str()), "remove", path);
}

FileStatus PosixFileSystem::makeDirectory(const std::string& path, mode_t permissions) {
    return statusOf(::mkdir(path.c_str(), permissions), "make the directory", path);
}

FileStatus PosixFileSystem::setPermissions(const std::string& path, mode_t permissions) {
    return statusOf(::chmod(path.c_str(), permissions), "set the permissions of", path);
}

FileStatus PosixFileSystem::setOwner(const std::string& path, uid_t owner, gid_t group) {
    return statusOf(::chown(path.c_str(), owner, group), "set the owner of", path);
}

FileStatus PosixFileSystem::syncFolder(const std::string& folder) {
    const Descriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor) return FileStatus::failed("open the folder", folder);
    // EINVAL: a file system that has nothing to sync for a folder.
    if (::fsync(descriptor.get()) != 0 && errno != EINVAL) return FileStatus::failed("sync the folder", folder);
    return {};
}

std::optional<Data> PosixFileSystem::readFile(const std::string& path, FileStatus* status) {
    report(status, {});
    std::size_t size = 0;
    const auto descriptor = openRegular(path, size, status);
    if (!descriptor) return std::nullopt;
    try {
        ByteBuffer buffer(size);
        for (;;) {
            // The size is a hint: the file may grow meanwhile, and those of /proc say 0.
            const auto wanted = size > buffer.size() ? size - buffer.size() : std::size_t{4096};
            const auto count = ::read(descriptor.get(), buffer.reserve(wanted), wanted);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) break;
            if (count == 0) return buffer.data();
            buffer.commit(static_cast<std::size_t>(count));
            if (buffer.size() == size) {
                // Ask for the end with a byte of our own, or every file would pay for a growing buffer.
                char next = 0;
                const auto more = ::read(descriptor.get(), &next, 1);
                if (more == 0) return buffer.data();
                if (more == 1) buffer.append(next);
            }
        }
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    report(status, FileStatus::failed("read", path));
    return std::nullopt;
}

std::optional<Data> PosixFileSystem::mapFile(const std::string& path, FileStatus* status) {
    report(status, {});
    std::size_t size = 0;
    const auto descriptor = openRegular(path, size, status);
    if (!descriptor) return std::nullopt;
    if (size == 0) return Data();  // nothing of that length can be mapped
    void* const address = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor.get(), 0);
    if (address == MAP_FAILED) {
        report(status, FileStatus::failed("map", path));
        return std::nullopt;
    }
    std::shared_ptr<const void> owner(address, [size](void* mapping) { ::munmap(mapping, size); });
    return Data(std::move(owner), static_cast<const std::uint8_t*>(address), size);
}

std::unique_ptr<ReadableFile> PosixFileSystem::openForReading(const std::string& path, FileStatus* status) {
    report(status, {});
    std::size_t size = 0;
    auto descriptor = openRegular(path, size, status);
    if (!descriptor) return nullptr;
    return std::make_unique<PosixReadableFile>(std::move(descriptor));
}

std::optional<FileAttributes> PosixFileSystem::attributes(const std::string& path) {
    struct stat info {};
    return attributesOf(::stat(path.c_str(), &info), info);
}

std::optional<FileAttributes> PosixFileSystem::linkAttributes(const std::string& path) {
    struct stat info {};
    return attributesOf(::lstat(path.c_str(), &info), info);
}

std::optional<std::string> PosixFileSystem::readLink(const std::string& path) {
    std::array<char, 4096> target;
    const auto size = ::readlink(path.c_str(), target.data(), target.size());
    if (size < 0 || static_cast<std::size_t>(size) == target.size()) return std::nullopt;
    return std::string(target.data(), static_cast<std::size_t>(size));
}

std::optional<std::vector<std::string>> PosixFileSystem::namesInFolder(const std::string& folder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(folder.c_str()), ::closedir);
    if (stream == nullptr) return std::nullopt;
    std::vector<std::string> names;
    errno = 0;
    while (const auto* entry = ::readdir(stream.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
        errno = 0;
    }
    if (errno != 0) return std::nullopt;
    std::ranges::sort(names);
    return names;
}

}  // namespace lorvale
