#pragma once
#include <string>

#include "base/files/Descriptor.h"

namespace lorvale {

/// Keeps other fetches, of this process and of others, from the same place as long as it lives.  The system
/// takes it away from a process that dies.  It is a file of its own, which stays, empty.
class FetchLock {
public:
    /// Empty handed where another fetch has it, or, after a log line, where the file cannot be made.
    explicit FetchLock(const std::string& path);
    FetchLock() = default;
    explicit operator bool() const { return static_cast<bool>(_file); }

private:
    Descriptor _file;
};

}  // namespace lorvale
