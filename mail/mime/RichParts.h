#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/values/attributed_text.h"
#include "lorvale/values/data.h"

/// Text of the richer kinds, in one place for both dialects.

namespace lorvale {

/// Finds a picture by the address that a page gives it; null for none.
using AttachmentSource = std::function<std::shared_ptr<const FileWrapper>(std::string_view address)>;

AttributedText textFromRTF(const Data& data);
AttributedText textFromHTML(const Data& data, const std::optional<std::string>& charset,
                            const AttachmentSource& pictures = nullptr);
AttributedText textFromEnriched(std::string_view text);
AttributedText textFromRichText(std::string_view text);

}  // namespace lorvale
