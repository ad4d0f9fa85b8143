#pragma once
#include <string_view>

#include "lorvale/message/headers.h"

namespace lorvale {

/// What a listing tells about the message with this header block, which may begin with an envelope line.
HeaderSummary summaryOfHeaderBlock(std::string_view block);

}  // namespace lorvale
