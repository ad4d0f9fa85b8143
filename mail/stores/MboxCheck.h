#pragma once
#include <string_view>

#include "lorvale/store/check.h"

namespace lorvale {

/// The rules of the flat mailbox format, tried on its bytes.  Findings go into the report, whose number of
/// messages and size are set.  Linear in the size.
void checkMboxBytes(std::string_view bytes, MailboxReport& report);

/// The files beside a flat mailbox: its lock, and what an interrupted change left behind.
void checkFilesBesideMbox(const std::string& path, MailboxReport& report);

}  // namespace lorvale
