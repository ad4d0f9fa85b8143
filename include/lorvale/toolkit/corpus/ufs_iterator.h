#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

/// What the system tells of a file.
struct UFSFileInfo {
    std::uint64_t size = 0;             // bytes
    std::int64_t modificationTime = 0;  // seconds since 1970
};

/// Walks the readable regular files of a directory tree.
///
/// Its directories are found when it is made, each before those inside of it.  The files of one after the other
/// are then delivered, in the order in which the system lists them.  Symbolic links are not followed and do not
/// count.  What cannot be opened is skipped, and so is whatever vanishes meanwhile; that goes for a path that
/// is too long for the system, too.
class LORVALE_EXPORT UFSIterator : public IAObject {
public:
    /// Raises UFSError when the root is not there ("error getting stat info"), no directory ("specified path
    /// not a directory"), or cannot be read ("unable to open directory").
    explicit UFSIterator(const char* root);
    UFSIterator(const UFSIterator&) = delete;
    UFSIterator& operator=(const UFSIterator&) = delete;
    ~UFSIterator() override;

    /// Goes to the next file; false at the end, and ever after.
    bool Increment();

    // The current file; all are empty before the first and behind the last one.

    /// The directory's path.
    const std::string& GetPath() const { return path; }
    const std::string& GetFileName() const { return fileName; }
    /// Path, "/", name.
    std::string GetFullPath() const;
    const UFSFileInfo& GetFileInfo() const { return fileInfo; }

    /// The number of the current directory in GetDirInfos().
    std::uint32_t GetDir() const { return static_cast<std::uint32_t>(currentDirectory); }
    std::uint32_t GetDirCount() const { return static_cast<std::uint32_t>(directories.size()); }
    const std::vector<std::string>& GetDirInfos() const { return directories; }
    /// Changes the order in which the directories will be walked.  Before the first Increment().
    void SortDirectories(const std::function<bool(const std::string&, const std::string&)>& lessThan);

private:
    void CollectDirInfo(const std::string& root);
    bool NextEntry();

    struct OpenDirectory;

    UFSFileInfo fileInfo;
    std::vector<std::string> directories;
    std::size_t currentDirectory = 0;
    std::unique_ptr<OpenDirectory> openDirectory;
    std::string path, fileName;
};

}  // namespace brindle
