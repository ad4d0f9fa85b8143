#include "lorvale/toolkit/corpus/ufs_iterator.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

/// A directory as the system lists it.
struct UFSIterator::OpenDirectory {
    explicit OpenDirectory(const std::string& path) : directory(::opendir(path.c_str()), ::closedir) {}

    bool IsOpen() const { return directory != nullptr; }
    /// The next name but "." and ".."; null at the end.
    const char* NextName() const {
        while (const dirent* const entry = ::readdir(directory.get())) {
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") return entry->d_name;
        }
        return nullptr;
    }

private:
    const std::unique_ptr<DIR, int (*)(DIR*)> directory;
};

UFSIterator::UFSIterator(const char* root) {
    CollectDirInfo(root);
}

UFSIterator::~UFSIterator() = default;

/// A list of what is still to be looked at takes the place of recursion: how deep a tree is counts for nothing,
/// and one directory is open at a time.
void UFSIterator::CollectDirInfo(const std::string& root) {
    struct stat info {};
    IAAssertion(::lstat(root.c_str(), &info) == 0, "error getting stat info", UFSError);
    IAAssertion(S_ISDIR(info.st_mode), "specified path not a directory", UFSError);
    std::vector<std::string> waiting = {root};  // the next one at the back
    while (!waiting.empty()) {
        std::string directory = std::move(waiting.back());
        waiting.pop_back();
        const OpenDirectory opened(directory);
        IAAssertion(opened.IsOpen() || !directories.empty(), "unable to open directory",
                    UFSError);  // the root
        if (!opened.IsOpen()) continue;
        std::vector<std::string> inside;
        while (const char* const name = opened.NextName()) {
            std::string child = directory + "/" + name;
            if (::lstat(child.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) inside.push_back(std::move(child));
        }
        directories.push_back(std::move(directory));
        std::move(inside.rbegin(), inside.rend(), std::back_inserter(waiting));
    }
}

void UFSIterator::SortDirectories(const std::function<bool(const std::string&, const std::string&)>& lessThan) {
    std::ranges::stable_sort(directories, lessThan);
}

std::string UFSIterator::GetFullPath() const {
    return fileName.empty() ? std::string() : path + "/" + fileName;
}

bool UFSIterator::Increment() {
    path.clear();
    fileName.clear();
    for (; currentDirectory < directories.size(); ++currentDirectory) {
        if (openDirectory == nullptr)
            openDirectory = std::make_unique<OpenDirectory>(directories[currentDirectory]);
        if (openDirectory->IsOpen() && NextEntry()) return true;
        openDirectory = nullptr;
    }
    return false;
}

/// False at the end of the open directory.
bool UFSIterator::NextEntry() {
    struct stat info {};
    while (const char* const name = openDirectory->NextName()) {
        const std::string found = directories[currentDirectory] + "/" + name;
        if (::lstat(found.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) continue;
        if (::access(found.c_str(), R_OK) != 0) continue;
        fileInfo = {static_cast<std::uint64_t>(info.st_size), info.st_mtime};
        fileName = name;
        path = directories[currentDirectory];
        return true;
    }
    return false;
}

}  // namespace brindle
