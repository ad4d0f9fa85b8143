#pragma once
#include "lorvale/message/headers.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/values/data.h"

namespace lorvale {

enum class EnvelopeLine : bool { leaveOut, write };

/// A header block made of decoded headers, with its final empty line: in the default C string encoding in the
/// classic dialect, in ASCII and, for addresses that are not, UTF-8 in the standard one.
Data encodeHeaderBlock(const HeaderDictionary& headers, const HeaderOrder& order,
                       const OriginalKeys& originalKeys, EnvelopeLine envelope,
                       MailDialect dialect = mailDialect());

}  // namespace lorvale
