#pragma once
#include <string_view>

#include "lorvale/values/data.h"
#include "lorvale/values/file_wrapper.h"

namespace lorvale {

/// A directory as one file that every system opens: a ZIP archive (APPNOTE 6.3) with the directory under its
/// name, links and permissions too.  Throws InvalidArgumentException for what the format cannot hold, such as
/// a name of 64 KB, and for directories that lie deeper in each other than FileWrapper::withPath() reads them.
Data zipArchive(const FileWrapper& directory, std::string_view name);

}  // namespace lorvale
