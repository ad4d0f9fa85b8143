#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace lorvale {

/// The part of a tar archive (POSIX ustar and pax, and what GNU adds for long names) that a program may unpack:
/// up to its end mark, if all of it is plain files and directories below the one that it is unpacked in.
/// Nullopt otherwise; `why` then says what it holds.  Whatever two programs could read differently counts as
/// harmful.  An archive that is cut off in the data of its last file passes.  Linear in the size.
std::optional<std::string_view> harmlessArchive(std::string_view archive, std::string& why);

}  // namespace lorvale
