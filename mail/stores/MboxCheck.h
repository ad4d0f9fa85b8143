#pragma once
#include <limits>
#include <string>
#include <string_view>

#include "lorvale/store/check.h"

namespace lorvale {

/// The rules of the flat mailbox format, tried on its bytes.  Findings go into the report, whose number of
/// messages and size are set.  Linear in the size.  The pieces in which the bytes are looked at change nothing.
void checkMboxBytes(std::string_view bytes, MailboxReport& report,
                    std::size_t pieces = std::numeric_limits<std::size_t>::max());

/// The files beside a flat mailbox: its lock, and what an interrupted change left behind.
void checkFilesBesideMbox(const std::string& path, MailboxReport& report);

}  // namespace lorvale
