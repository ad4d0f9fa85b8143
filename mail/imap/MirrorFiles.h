#pragma once
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace lorvale {

/// Files that come into a folder together.  Each is there whole or not at all, whatever happens; what is added
/// counts from commit() on, and goes without it.  One thread.
class MirrorFiles {
public:
    explicit MirrorFiles(std::string folder) : _folder(std::move(folder)) {}
    ~MirrorFiles();
    MirrorFiles(const MirrorFiles&) = delete;
    MirrorFiles& operator=(const MirrorFiles&) = delete;

    /// False, after a log line, when it could not be written.
    bool add(std::string_view name, std::string_view text);
    void commit();

private:
    struct File {
        std::string written, path;
    };
    const std::string _folder;
    std::vector<File> _files;  // synced, under names of the moment
};

}  // namespace lorvale
