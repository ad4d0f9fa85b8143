#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"

namespace lorvale {

// The one place that says where things lie, for a host or a test to redirect.  Paths are UTF-8 without a final
// slash.  Each setter takes an empty path to bring back what the system says.  Any thread may call these; a
// change holds for what is asked for afterwards.

/// $HOME, else the home of the user in the password file.
LORVALE_EXPORT std::string homeDirectory();
LORVALE_EXPORT void setHomeDirectory(std::string_view path);

/// $TMPDIR, else "/tmp".
LORVALE_EXPORT std::string temporaryDirectory();
LORVALE_EXPORT void setTemporaryDirectory(std::string_view path);

/// Where the system delivers mail, one file a user: the folder of $MAIL, else "/var/mail".
LORVALE_EXPORT std::string spoolDirectory();
LORVALE_EXPORT void setSpoolDirectory(std::string_view path);

/// The library's resources: $LORVALE_RESOURCES, else where they were installed, else the source tree's.
LORVALE_EXPORT std::string resourceDirectory();
LORVALE_EXPORT void setResourceDirectory(std::string_view path);
/// "name.type" in the resource directory (no dot for an empty type); nullopt when no such file is there.
[[nodiscard]] LORVALE_EXPORT std::optional<std::string> pathForResource(std::string_view name,
                                                                        std::string_view type = {});

/// The user's settings: "lorvale" in $XDG_CONFIG_HOME, else (and always for a redirected home) in ".config" of
/// the home directory.  Not made here.
LORVALE_EXPORT std::string configurationDirectory();
LORVALE_EXPORT void setConfigurationDirectory(std::string_view path);

/// "/Network/Library" and its like are looked for under this; "/" at first.
LORVALE_EXPORT std::string rootDirectory();
LORVALE_EXPORT void setRootDirectory(std::string_view path);

/// Puts a home directory for a leading "~" or "~name", takes out ".", "..", repeated and final slashes.  A ".."
/// behind a symbolic link goes up from where the link leads; otherwise the file system is not asked.  An
/// unknown user's "~name" and a ".." at the start of a relative path stay.
[[nodiscard]] LORVALE_EXPORT std::string standardizePath(std::string_view path);

/// "~" in place of the home directory at the start of a path.
[[nodiscard]] LORVALE_EXPORT std::string abbreviateWithTilde(std::string_view path);

/// The login name of the process's user, from the password file; else $LOGNAME, else the user number.
LORVALE_EXPORT std::string loginName();
LORVALE_EXPORT void setLoginName(std::string_view name);
/// This machine's name, as it stands in lock files.
LORVALE_EXPORT std::string hostName();
LORVALE_EXPORT void setHostName(std::string_view name);
/// The last component of the program's path.
LORVALE_EXPORT std::string processName();
LORVALE_EXPORT void setProcessName(std::string_view name);

}  // namespace lorvale
