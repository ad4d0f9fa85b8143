#include "lorvale/values/file_wrapper.h"

#include <algorithm>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"

namespace lorvale {

namespace {

constexpr int kMostLevels = 100;  // of directories; far below the stack

bool succeeded(const FileStatus& status) {
    if (!status) log("%@", status.text());
    return static_cast<bool>(status);
}

std::string nameForUse(std::string_view stem, std::string_view extension, int number) {
    auto name = std::string(stem) + "-" + std::to_string(number);
    if (!extension.empty()) name.append(".").append(extension);
    return name;
}

}  // namespace

std::shared_ptr<FileWrapper> FileWrapper::make(Content content) {
    return std::shared_ptr<FileWrapper>(new FileWrapper(std::move(content)));  // the constructor is private
}

std::shared_ptr<FileWrapper> FileWrapper::regularFile(Data contents) {
    return make(std::move(contents));
}
std::shared_ptr<FileWrapper> FileWrapper::directory() {
    return make(Directory());
}
std::shared_ptr<FileWrapper> FileWrapper::symbolicLink(std::string_view target) {
    return make(Link{std::string(target)});
}

Data FileWrapper::regularFileContents() const {
    const auto* const contents = std::get_if<Data>(&_content);
    return contents == nullptr ? Data() : *contents;
}

std::string FileWrapper::symbolicLinkDestination() const {
    const auto* const link = std::get_if<Link>(&_content);
    return link == nullptr ? std::string() : link->target;
}

const FileWrapper::Entries& FileWrapper::fileWrappers() const {
    static const Entries none;
    const auto* const directory = std::get_if<Directory>(&_content);
    return directory == nullptr ? none : directory->entries;
}

bool FileWrapper::isFilename(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

bool FileWrapper::setFilename(std::string_view name) {
    const bool isGood = isFilename(name);
    if (isGood) _filename = name;
    return isGood;
}

bool FileWrapper::setPreferredFilename(std::string_view name) {
    const bool isGood = isFilename(name);
    if (isGood) _preferredFilename = name;
    return isGood;
}

void FileWrapper::setPermissions(std::optional<unsigned> permissions) {
    // Never the bits that run a program as somebody else.
    if (permissions) *permissions &= 0777;
    _permissions = permissions;
}

bool FileWrapper::holds(const FileWrapper& file) const {
    return this == &file ||
           std::ranges::any_of(fileWrappers(), [&](const auto& entry) { return entry.second->holds(file); });
}

std::string FileWrapper::addFileWrapper(std::shared_ptr<FileWrapper> file) {
    auto* const directory = std::get_if<Directory>(&_content);
    if (directory == nullptr) throw InvalidArgumentException("only a directory takes further files");
    if (file == nullptr || file->holds(*this))
        throw InvalidArgumentException("a directory takes no null file and not itself");
    const auto wanted = file->preferredFilename().empty() ? file->filename() : file->preferredFilename();
    if (wanted.empty()) throw InvalidArgumentException("a file in a directory needs a name");
    auto name = wanted;
    while (directory->entries.contains(name)) {
        auto& number = directory->lastNumbers.try_emplace(wanted, 1).first->second;
        name = nameForUse(stringByDeletingPathExtension(wanted), pathExtension(wanted), ++number);
    }
    file->_filename = name;
    directory->entries.emplace(name, std::move(file));
    return name;
}

// On disk ----------------------------------------------------------------------------------------------------

std::shared_ptr<FileWrapper> FileWrapper::withPath(std::string_view path) {
    return read(std::string(path), 1);
}

std::shared_ptr<FileWrapper> FileWrapper::readDirectory(const std::string& path, int depth) {
    const auto names = FileSystem::current().namesInFolder(path);
    if (!names) return nullptr;
    auto file = directory();
    for (const auto& name : *names) {
        auto entry = read(stringByAppendingPathComponent(path, name), depth + 1);
        if (entry == nullptr) return nullptr;
        std::get<Directory>(file->_content).entries.emplace(name, std::move(entry));
    }
    return file;
}

std::shared_ptr<FileWrapper> FileWrapper::read(const std::string& path, int depth) {
    auto& files = FileSystem::current();
    const auto attributes = files.linkAttributes(path);
    std::shared_ptr<FileWrapper> file;
    if (attributes && attributes->isLink) {
        if (const auto target = files.readLink(path)) file = symbolicLink(*target);
    } else if (attributes && attributes->isRegular) {
        if (auto contents = files.readFile(path)) file = regularFile(*std::move(contents));
    } else if (attributes && attributes->isDirectory && depth <= kMostLevels) {
        file = readDirectory(path, depth);
    }
    if (file == nullptr) {
        log("cannot read %@ as a file, a directory or a link", path);
        return nullptr;
    }
    if (!attributes->isLink) file->setPermissions(attributes->permissions);
    file->_filename = file->_preferredFilename = std::string(lastPathComponent(path));
    return file;
}

bool FileWrapper::writeToPath(std::string_view pathView) const {
    const std::string path(pathView);
    auto& files = FileSystem::current();
    if (const auto* const link = std::get_if<Link>(&_content))
        return succeeded(files.symbolicLink(link->target, path));
    if (const auto* const contents = std::get_if<Data>(&_content)) {
        if (!succeeded(writeFileAtomically(path, contents->view(), _permissions.value_or(0666)))) return false;
    } else if (!writeDirectory(path)) {
        return false;
    }
    // What was there may have had others, and the process's mask takes some away.
    return !_permissions || succeeded(files.setPermissions(path, *_permissions));
}

bool FileWrapper::writeDirectory(const std::string& path) const {
    // One that is to be read only is filled before it becomes so.
    if (!succeeded(FileSystem::current().makeDirectory(path, _permissions ? 0700 : 0777))) return false;
    return std::ranges::all_of(fileWrappers(), [&](const auto& entry) {
        return entry.second->writeToPath(stringByAppendingPathComponent(path, entry.first));
    });
}

}  // namespace lorvale
