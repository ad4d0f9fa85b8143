#pragma once
#include <filesystem>
#include <optional>
#include <string>

#include "base/files/FileSystem.h"

namespace lorvale {

class MessageStore;

/// The name of the index in the directory of a mailbox.
inline constexpr std::string_view kIndexName = "mbox.index";

/// The file of an index, as a file.
///
/// An index that has all of the mailbox is given the time at which the mail in "mbox" was written, and loses it
/// while a store keeps it: who comes later knows by the two times that there is nothing to compare.  Any change
/// of either file ends that, too.
class MboxIndexFile {
public:
    explicit MboxIndexFile(std::string path) : _path(std::move(path)) {}
    static std::string pathInStore(const MessageStore& store);

    const std::string& path() const { return _path; }
    bool exists() const;
    /// Nothing happens where it is not there.
    void remove() const;
    /// Remembers the file as it is now.
    void remember();
    /// Whether it is as it was remembered.
    bool isUnchanged() const;

    using Time = std::filesystem::file_time_type;
    /// When the mail of the mailbox was written last; nullopt where it is in no such file.
    std::optional<Time> mailTime() const;
    bool isMarkedComplete() const;
    /// Not for mail so young that the clocks of files may not tell it from the next change.
    void markComplete(Time mail) const;
    void unmark() const;

private:
    const std::string _path;
    std::optional<FileAttributes> _known;
};

}  // namespace lorvale
