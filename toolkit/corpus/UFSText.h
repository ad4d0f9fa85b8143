#pragma once
#include <memory>

#include "lorvale/toolkit/corpus/doc.h"

namespace brindle {

/// The text of a file.  Raises "Cannot open UFSDoc for read" (InvalidDocument), and reports the path before.
std::unique_ptr<IADocText> OpenDocText(const char* path);

}  // namespace brindle
