#include "base/files/PathUtils.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>

#include "base/files/FileSystem.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr auto npos = std::string_view::npos;

bool succeeded(const FileStatus& status) {
    if (!status) log("%@", status.text());
    return static_cast<bool>(status);
}

std::string_view withoutFinalSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    return path;
}

}  // namespace

// By the text alone ---------------------------------------------------------------------------------------

std::string_view lastPathComponent(std::string_view path) {
    path = withoutFinalSlashes(path);
    const auto slash = path.rfind('/');
    return slash == npos || path.size() == 1 ? path : path.substr(slash + 1);
}

std::string_view pathExtension(std::string_view path) {
    const auto name = lastPathComponent(path);
    const auto dot = name.rfind('.');
    return dot == npos || dot == 0 ? std::string_view() : name.substr(dot + 1);
}

std::string_view stringByDeletingPathExtension(std::string_view path) {
    path = withoutFinalSlashes(path);
    const auto extension = pathExtension(path);
    return extension.empty() ? path : path.substr(0, path.size() - extension.size() - 1);
}

std::string_view stringByDeletingLastPathComponent(std::string_view path) {
    path = withoutFinalSlashes(path);
    const auto slash = path.rfind('/');
    return slash == npos ? std::string_view()
                         : withoutFinalSlashes(path.substr(0, std::max<std::size_t>(slash, 1)));
}

std::string stringByAppendingPathComponent(std::string_view path, std::string_view component) {
    std::string joined(withoutFinalSlashes(path));
    if (component.empty()) return joined;
    if (joined.empty()) return std::string(component);
    if (!joined.ends_with('/')) joined += '/';
    return joined += component.substr(std::min(component.find_first_not_of('/'), component.size()));
}

std::string pathWithDirectory(std::optional<std::string_view> directory,
                              std::optional<std::string_view> filename,
                              std::optional<std::string_view> extension) {
    auto path = stringByAppendingPathComponent(directory.value_or(""), filename.value_or(""));
    if (extension) path.append(".").append(*extension);
    return path;
}

// Free names ----------------------------------------------------------------------------------------------

// A final slash would make the system look behind a link; "link/" means the link here, as everywhere in this
// file, or deleting it would empty the folder that it leads to.
bool pathExists(std::string_view path) {
    return FileSystem::current().linkAttributes(std::string(withoutFinalSlashes(path))).has_value();
}

std::string uniquePath(std::string_view path) {
    return uniquePathWithMaximumLength(path, -1);
}

namespace {

/// The last characters of an ASCII text, none for a count below 0.
std::string lastCharacters(const std::string& text, std::ptrdiff_t count) {
    if (std::ssize(text) <= count) return text;
    return text.substr(text.size() - static_cast<std::size_t>(std::max<std::ptrdiff_t>(count, 0)));
}

std::string nameWithin(std::string_view stem, std::string process, std::string serial, int maximum) {
    if (maximum > 0) {
        stem = substring(stem, {0, static_cast<std::size_t>(std::max(maximum - 8, 0))});
        const auto left = maximum - static_cast<std::ptrdiff_t>(characterCount(stem));
        process = lastCharacters(process, left - 4);
        serial = lastCharacters(serial, left - std::ssize(process) - 1);
    }
    return formatText("%@-%@-%@", stem, process, serial);
}

}  // namespace

std::string uniquePathWithMaximumLength(std::string_view path, int maximum) {
    path = withoutFinalSlashes(path);
    if (!pathExists(path)) return std::string(path);
    static std::atomic<unsigned> serial{0};
    const auto directory = stringByDeletingLastPathComponent(path);
    const auto stem = stringByDeletingPathExtension(lastPathComponent(path));
    const auto extension = pathExtension(path);
    // A short name has room for a few digits of the serial number only: when these have all been seen, a longer
    // name is better than none.
    for (int attempt = 0;; ++attempt) {
        const auto name = nameWithin(stem, std::to_string(::getpid()), std::to_string(++serial),
                                     attempt < 10'000 ? maximum : -1);
        auto unique =
            pathWithDirectory(directory, name, extension.empty() ? std::nullopt : std::optional(extension));
        if (!pathExists(unique)) return unique;
    }
}

std::string makeUniqueFilePath(std::string_view path) {
    static std::atomic<unsigned> serial{0};
    for (;;) {
        auto unique = formatText("%@.%d%d.%s", stringByDeletingPathExtension(path), ::getpid(), ++serial,
                                 pathExtension(path));
        if (!pathExists(unique)) return unique;
    }
}

// Changes -------------------------------------------------------------------------------------------------

bool deletePath(std::string_view pathView) {
    const std::string path(withoutFinalSlashes(pathView));
    auto& files = FileSystem::current();
    const auto attributes = files.linkAttributes(path);
    if (!attributes) return true;
    if (attributes->isDirectory && !attributes->isLink)
        for (const auto& name : files.namesInFolder(path).value_or(std::vector<std::string>()))
            if (!deletePath(stringByAppendingPathComponent(path, name))) return false;
    return succeeded(files.remove(path));
}

bool deleteFile(std::string_view path) {
    return deletePath(path);
}

namespace {

bool sameFile(const FileAttributes& a, const FileAttributes& b) {
    return a.device == b.device && a.inode == b.inode;
}

/// Whether a path lies in a directory, however it is written.
bool liesIn(const std::string& path, const FileAttributes& directory) {
    std::error_code ignored;
    for (auto folder = std::filesystem::absolute(path, ignored).parent_path(); !folder.empty();
         folder = folder.parent_path()) {
        const auto attributes = FileSystem::current().attributes(folder.string());
        if (attributes && sameFile(*attributes, directory)) return true;
        if (folder == folder.parent_path()) break;
    }
    return false;
}

bool copyTree(const std::string& from, const std::string& to, const FileAttributes& attributes) {
    auto& files = FileSystem::current();
    if (attributes.isLink) {
        const auto target = files.readLink(from);
        return target && succeeded(files.symbolicLink(*target, to));
    }
    if (attributes.isRegular) return succeeded(copyFile(from, to, attributes.permissions));
    if (!attributes.isDirectory) {
        log("cannot copy %@: neither a file, a link nor a directory", from);
        return false;
    }
    // Writable while it is filled, whatever it will be afterwards.
    if (!succeeded(files.makeDirectory(to, 0700))) return false;
    const auto names = files.namesInFolder(from);
    if (!names) {
        log("cannot read the directory %@", from);
        return false;
    }
    for (const auto& name : *names) {
        const auto inside = stringByAppendingPathComponent(from, name);
        const auto its = files.linkAttributes(inside);
        if (!its || !copyTree(inside, stringByAppendingPathComponent(to, name), *its)) return false;
    }
    return succeeded(files.setPermissions(to, attributes.permissions));
}

}  // namespace

bool copyToPath(std::string_view pathView, std::string_view destinationView) {
    const std::string path(withoutFinalSlashes(pathView)), destination(withoutFinalSlashes(destinationView));
    const auto attributes = FileSystem::current().linkAttributes(path);
    if (!attributes) {
        log("cannot copy %@: nothing is there", path);
        return false;
    }
    if (pathExists(destination) || (attributes->isDirectory && liesIn(destination, *attributes))) {
        log("cannot copy %@ to %@: the place is taken or lies inside", path, destination);
        return false;
    }
    if (copyTree(path, destination, *attributes)) return true;
    deletePath(destination);
    return false;
}

bool makeDirectoryWithMode(std::string_view path, unsigned mode) {
    return succeeded(makeDirectories(std::string(path), static_cast<mode_t>(mode)));
}

}  // namespace lorvale
