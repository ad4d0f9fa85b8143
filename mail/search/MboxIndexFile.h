#pragma once
#include <optional>
#include <string>

#include "base/files/FileSystem.h"

namespace lorvale {

class MessageStore;

/// The name of the index in the directory of a mailbox.
inline constexpr std::string_view kIndexName = "mbox.index";

/// The file of an index, as a file.
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

private:
    const std::string _path;
    std::optional<FileAttributes> _known;
};

}  // namespace lorvale
