#pragma once
#include <functional>
#include <map>
#include <memory>
#include <optional>
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

    [[nodiscard]] static std::shared_ptr<FileWrapper> regularFile(Data contents);
    [[nodiscard]] static std::shared_ptr<FileWrapper> directory();
    [[nodiscard]] static std::shared_ptr<FileWrapper> symbolicLink(std::string_view target);
    /// What lies at the path, a directory with everything in it, named after it, with its permissions; null
    /// after logging why when there is nothing, it cannot be read, or it is of another kind.
    [[nodiscard]] static std::shared_ptr<FileWrapper> withPath(std::string_view path);

    Kind kind() const { return static_cast<Kind>(_content.index()); }
    /// These three answer something empty for another kind.
    Data regularFileContents() const;
    std::string symbolicLinkDestination() const;
    const Entries& fileWrappers() const;

    /// Puts a file into a directory under its preferred name, or one made from it when that is taken, and
    /// answers the name.  Throws InvalidArgumentException when this is no directory, the file has no name, or
    /// it holds this directory.
    std::string addFileWrapper(std::shared_ptr<FileWrapper> file);

    /// Whether a text can be the name of a file in a directory: not empty, not "." or "..", without "/" and
    /// without a zero byte.  A name that a letter brought must not lead out of its directory.
    [[nodiscard]] static bool isFilename(std::string_view name);
    /// The name it was read or is stored under, and the one it would like to have; empty at first.  The setters
    /// answer false and leave the name alone when the new one cannot be a name.
    const std::string& filename() const { return _filename; }
    [[nodiscard]] bool setFilename(std::string_view name);
    const std::string& preferredFilename() const { return _preferredFilename; }
    [[nodiscard]] bool setPreferredFilename(std::string_view name);

    /// The permissions of a file or directory, the lower nine bits of its mode; nullopt, as at first, are those
    /// of any new file.  A link has none.
    std::optional<unsigned> permissions() const { return _permissions; }
    void setPermissions(std::optional<unsigned> permissions);

    /// Writes it all to a path, with the permissions it has.  A regular file replaces one that is there; a
    /// directory or link needs the place to be free.  False after logging what went wrong.
    [[nodiscard]] bool writeToPath(std::string_view path) const;

private:
    struct Link {
        std::string target;
    };
    struct Directory {
        Entries entries;
        std::map<std::string, int, std::less<>> lastNumbers;  // given to files of a name that was taken
    };
    using Content = std::variant<Data, Directory, Link>;  // in the order of Kind
    explicit FileWrapper(Content content) : _content(std::move(content)) {}
    static std::shared_ptr<FileWrapper> make(Content content);
    static std::shared_ptr<FileWrapper> read(const std::string& path, int depth);
    static std::shared_ptr<FileWrapper> readDirectory(const std::string& path, int depth);
    bool holds(const FileWrapper& file) const;
    bool writeDirectory(const std::string& path) const;

    Content _content;
    std::string _filename, _preferredFilename;
    std::optional<unsigned> _permissions;
};

}  // namespace lorvale
