#pragma once
#include <optional>
#include <string>
#include <string_view>

/// Operations on paths.  Those that change files answer false after logging what went wrong.

namespace lorvale {

/// The components joined with "/" and the extension with "."; what is nullopt is left out.
std::string pathWithDirectory(std::optional<std::string_view> directory,
                              std::optional<std::string_view> filename,
                              std::optional<std::string_view> extension = std::nullopt);

/// Whether something stands at the path, a dangling symbolic link too.
bool pathExists(std::string_view path);

// The parts of a path, by its text alone.  A trailing "/" does not count.
std::string_view lastPathComponent(std::string_view path);
std::string_view pathExtension(std::string_view path);  ///< without the dot; empty for "name." and ".name"
std::string_view stringByDeletingPathExtension(std::string_view path);
std::string_view stringByDeletingLastPathComponent(std::string_view path);
std::string stringByAppendingPathComponent(std::string_view path, std::string_view component);

/// The path itself when nothing is there; otherwise one beside it that is free.  A maximum above 0 bounds the
/// characters of its name (for file systems with short names); -1 sets no bound.
std::string uniquePath(std::string_view path);
std::string uniquePathWithMaximumLength(std::string_view path, int maximum);
/// A path that does not exist, made from this one by putting the process and a serial number before its
/// extension.
std::string makeUniqueFilePath(std::string_view path);

/// Removes what is at the path, a directory with everything in it.  True when nothing is left there.
bool deletePath(std::string_view path);
bool deleteFile(std::string_view path);
/// Copies a file, a symbolic link or a whole directory to a path at which nothing stands yet.
bool copyToPath(std::string_view path, std::string_view destination);
/// Makes the directory and all missing parents with the mode, less the process's mask.  True also when it is
/// there already.
bool makeDirectoryWithMode(std::string_view path, unsigned mode);

}  // namespace lorvale
