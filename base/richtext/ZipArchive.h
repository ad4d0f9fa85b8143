#pragma once
#include <string_view>

#include "lorvale/values/data.h"
#include "lorvale/values/file_wrapper.h"

namespace lorvale {

/// A directory as one file that every system opens: a ZIP archive (APPNOTE 6.3) with the directory under its
/// name, links and permissions too.  Nothing is compressed.  Throws InvalidArgumentException for what the
/// format cannot hold: 4 GB, 65,535 files, names of 64 KB; and for directories that lie deeper in each other
/// than FileWrapper::withPath() reads them.
Data zipArchive(const FileWrapper& directory, std::string_view name);

}  // namespace lorvale
