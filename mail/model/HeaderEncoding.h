#pragma once
#include "lorvale/message/headers.h"
#include "lorvale/values/data.h"

namespace lorvale {

enum class EnvelopeLine : bool { leaveOut, write };

/// A header block made of decoded headers, with its final empty line, in the default C string encoding.
Data encodeHeaderBlock(const HeaderDictionary& headers, const HeaderOrder& order,
                       const OriginalKeys& originalKeys, EnvelopeLine envelope);

}  // namespace lorvale
