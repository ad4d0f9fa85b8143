#pragma once
#include "base/files/FileSystem.h"

namespace lorvale {

/// The real disk, through the system's calls.
class PosixFileSystem : public FileSystem {
public:
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

    std::optional<Data> readFile(const std::string& path, FileStatus* status) override;
    std::optional<Data> mapFile(const std::string& path, FileStatus* status) override;
    std::unique_ptr<ReadableFile> openForReading(const std::string& path, FileStatus* status) override;
    std::optional<FileAttributes> attributes(const std::string& path) override;
    std::optional<FileAttributes> linkAttributes(const std::string& path) override;
    std::optional<std::string> readLink(const std::string& path) override;
    std::optional<std::vector<std::string>> namesInFolder(const std::string& folder) override;
};

}  // namespace lorvale
