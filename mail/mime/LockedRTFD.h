#pragma once
#include <optional>
#include <string>

#include "lorvale/values/attributed_text.h"

/// RTFD directories for bodies, one written and one read at a time: two bodies may share a directory.

namespace lorvale {

[[nodiscard]] bool lockedWriteRTFDToFile(const AttributedText& text, const std::string& path, bool atomically);

/// What is there; of a directory whose RTF cannot be read, the plain bytes of it as text.  Nullopt without
/// that.
std::optional<AttributedText> lockedAttributedStringFromRTFDFile(const std::string& path);

}  // namespace lorvale
