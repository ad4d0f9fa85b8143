#include "lorvale/values/file_wrapper.h"

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

/// A name that a letter brought must not lead out of its directory.
bool isPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
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
    return make(Entries());
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
    const auto* const entries = std::get_if<Entries>(&_content);
    return entries == nullptr ? none : *entries;
}

std::string FileWrapper::addFileWrapper(std::shared_ptr<FileWrapper> file) {
    auto* const entries = std::get_if<Entries>(&_content);
    if (entries == nullptr) throw InvalidArgumentException("only a directory takes further files");
    const auto wanted = file->preferredFilename().empty() ? file->filename() : file->preferredFilename();
    auto name = wanted;
    for (int number = 2; entries->contains(name); ++number)
        name = nameForUse(stringByDeletingPathExtension(wanted), pathExtension(wanted), number);
    file->setFilename(name);
    entries->emplace(name, std::move(file));
    return name;
}

// On disk ----------------------------------------------------------------------------------------------------

std::shared_ptr<FileWrapper> FileWrapper::withPath(std::string_view path) {
    return read(std::string(path), 1);
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
        file = directory();
        const auto names = files.namesInFolder(path);
        if (!names) file = nullptr;
        for (const auto& name : names.value_or(std::vector<std::string>())) {
            auto entry = read(stringByAppendingPathComponent(path, name), depth + 1);
            if (entry == nullptr) return nullptr;
            std::get<Entries>(file->_content).emplace(name, std::move(entry));
        }
    }
    if (file == nullptr) {
        log("cannot read %@ as a file, a directory or a link", path);
        return nullptr;
    }
    file->_filename = file->_preferredFilename = std::string(lastPathComponent(path));
    return file;
}

bool FileWrapper::writeToPath(std::string_view pathView) const {
    const std::string path(pathView);
    if (const auto* const contents = std::get_if<Data>(&_content))
        return succeeded(writeFileAtomically(path, contents->view()));
    if (const auto* const link = std::get_if<Link>(&_content))
        return succeeded(FileSystem::current().symbolicLink(link->target, path));
    if (!succeeded(FileSystem::current().makeDirectory(path, 0777))) return false;
    for (const auto& [name, entry] : fileWrappers()) {
        if (!isPlainName(name)) {
            log("cannot write a file named \"%@\" into %@", name, path);
            return false;
        }
        if (!entry->writeToPath(stringByAppendingPathComponent(path, name))) return false;
    }
    return true;
}

}  // namespace lorvale
