#pragma once
#include <string>

#include "lorvale/message/list.h"
#include "lorvale/store/check.h"

namespace lorvale {

struct OpenMbox;

/// Where a list of TOCMessages is not as a scan of their file finds them, in words; empty when they agree.
std::string differenceFromScan(const MessageList& listed, const OpenMbox& file);

/// The rules of a directory mailbox that are about more than its mail: that the table of contents can be read
/// and agrees with the mail, and what lies beside them.
void checkFilesOfTarnMbox(const std::string& path, MailboxReport& report);

}  // namespace lorvale
