#pragma once
#include <chrono>
#include <string>

#include "base/files/Descriptor.h"
#include "base/files/FileSystem.h"

namespace lorvale {

/// Keeps other such locks of the same place away as long as it lives, those of this process and of others.  The
/// system takes it away from a process that dies.
class FileLock {
public:
    FileLock() = default;  ///< of nothing
    /// Of a file that is there for this alone, is made where it is missing, and stays, empty.  While somebody
    /// else has it, waits for up to `patience`.
    explicit FileLock(const std::string& path, std::chrono::milliseconds patience = {});
    /// Of a folder, which needs no file more.
    static FileLock ofFolder(const std::string& path, std::chrono::milliseconds patience = {});

    bool isHeld() const { return static_cast<bool>(_file); }
    /// Whether somebody else has it.
    bool isTaken() const { return _isTaken; }
    /// Why it is neither: the file cannot be made, or the file system has no locks.
    const FileStatus& failure() const { return _failure; }

private:
    FileLock(const std::string& path, int flags, std::chrono::milliseconds patience);

    Descriptor _file;  // closing it gives the lock back
    bool _isTaken = false;
    FileStatus _failure;
};

}  // namespace lorvale
