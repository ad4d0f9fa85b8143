#pragma once
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "lorvale/export.h"
#include "lorvale/values/data.h"

namespace lorvale {

/// A file held in memory: a regular file, a directory of further ones, or a symbolic link.  What an attachment
/// carries.  Shared by its users; one thread at a time, or several that only read.
class LORVALE_EXPORT FileWrapper {
public:
    enum class Kind { regularFile, directory, symbolicLink };
    /// By the name in the directory.
    using Entries = std::map<std::string, std::shared_ptr<FileWrapper>, std::less<>>;

    static std::shared_ptr<FileWrapper> regularFile(Data contents);
    static std::shared_ptr<FileWrapper> directory();
    static std::shared_ptr<FileWrapper> symbolicLink(std::string_view target);
    /// What lies at the path, a directory with everything in it, named after it; null after logging why when
    /// there is nothing, it cannot be read, or it is of another kind.
    static std::shared_ptr<FileWrapper> withPath(std::string_view path);

    Kind kind() const { return static_cast<Kind>(_content.index()); }
    /// These three answer something empty for another kind.
    Data regularFileContents() const;
    std::string symbolicLinkDestination() const;
    const Entries& fileWrappers() const;

    /// Puts a file into a directory under its preferred name, or one made from it when that is taken, and
    /// answers the name.  Throws InvalidArgumentException when this is no directory.
    std::string addFileWrapper(std::shared_ptr<FileWrapper> file);

    /// The name it was read or is stored under, and the one it would like to have.
    const std::string& filename() const { return _filename; }
    void setFilename(std::string_view name) { _filename = name; }
    const std::string& preferredFilename() const { return _preferredFilename; }
    void setPreferredFilename(std::string_view name) { _preferredFilename = name; }

    /// Writes it all to a path.  A regular file replaces one that is there; a directory or link needs the place
    /// to be free.  False after logging what went wrong; a name in a directory that would lead out of it is an
    /// error too.
    bool writeToPath(std::string_view path) const;

private:
    struct Link {
        std::string target;
    };
    using Content = std::variant<Data, Entries, Link>;  // in the order of Kind
    explicit FileWrapper(Content content) : _content(std::move(content)) {}
    static std::shared_ptr<FileWrapper> make(Content content);
    static std::shared_ptr<FileWrapper> read(const std::string& path, int depth);

    Content _content;
    std::string _filename, _preferredFilename;
};

}  // namespace lorvale
