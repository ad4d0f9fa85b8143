#pragma once
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace lorvale {

class WritableFile;

/// Files that come into a folder together.  Each is there whole or not at all, whatever happens; what is added
/// counts from commit() on, and goes without it.  One thread.
class MirrorFiles {
public:
    explicit MirrorFiles(std::string folder);
    ~MirrorFiles();
    MirrorFiles(const MirrorFiles&) = delete;
    MirrorFiles& operator=(const MirrorFiles&) = delete;

    /// False, after a log line, when it could not be written.
    bool add(std::string_view name, std::string_view text);
    /// Of what was added and waits.
    std::size_t bytes() const { return _bytes; }
    /// How many of the files that waited are there now.  The others are gone, with a log line.
    std::size_t commit();

private:
    void discard();

    struct File {
        std::string written, path;
    };
    const std::string _folder;
    std::vector<File> _files;  // that wait, under names of the moment
    std::size_t _bytes = 0;
    std::unique_ptr<WritableFile> _first;  // stays open, and so learns of what goes wrong with the others
};

}  // namespace lorvale
