#pragma once
#include <cstddef>
#include <string>
#include <vector>

#include "lorvale/values/attributed_text.h"

namespace mailhost {

/// A file that was written.
struct SavedFile {
    std::string path;
    std::size_t size = 0;  // bytes
};

/// Writes the attachments of a text into a directory, which is made where it is missing.  A name that a letter
/// brings never leads out of it, and never replaces a file: the second one is "name-2".  Links are left out.
/// Throws Failure when a file cannot be written.
std::vector<SavedFile> saveAttachments(const lorvale::AttributedText& text, const std::string& directory);

}  // namespace mailhost
