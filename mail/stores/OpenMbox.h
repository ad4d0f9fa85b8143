#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/files/FileSystem.h"
#include "lorvale/values/data.h"
#include "mail/stores/MboxScan.h"

namespace lorvale {

class TOCMessage;

/// Whether a file is the same one and seems to be unchanged.
bool isUnchanged(const FileAttributes& now, const FileAttributes& before);

/// The file "mbox" of a directory mailbox, open for reading, as its store knows it.  A value that never
/// changes; any thread may read.
///
/// Nothing tells whether a message's bytes are still its own but the state of the file: as long as that is the
/// known one they are.  Otherwise another program has been at it, and a message is given out only if what lies
/// at its place is listed as it is and ends where it does.
struct OpenMbox {
    /// Null, and a reason, when it cannot be opened.
    static std::shared_ptr<const OpenMbox> open(const std::string& path, FileStatus& status);

    std::shared_ptr<ReadableFile> file;
    FileAttributes known;
    std::uint64_t generation = 0;  // of the places in it: those of another one mean nothing here

    std::uint64_t size() const { return static_cast<std::uint64_t>(known.size); }
    /// The same file after a change by the store; null when it cannot be looked at any more.
    std::shared_ptr<const OpenMbox> changed(bool placesToo = false) const;

    // Nullopt when the bytes are not there any more.
    std::optional<Data> headerOf(const TOCMessage& message, MboxRange range) const;
    std::optional<Data> bodyOf(const TOCMessage& message, MboxRange range) const;
    std::optional<Data> read(MboxRange range) const;

    /// Finds the messages from `start` on, where one begins.  False when none does, or reading fails.
    bool scan(std::uint64_t start, const std::function<void(MboxEntry)>& found) const;

private:
    bool isStill(const TOCMessage& message, MboxRange range, std::string_view header) const;
};

}  // namespace lorvale
