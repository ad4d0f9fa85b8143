#pragma once
#include <string>

#include "lorvale/message.h"
#include "lorvale/store.h"

namespace mailhost {

/// Appends copies in runs of equal status, so that it stays, and gives back what was loaded of each, under a
/// progress bar.  Whether all of them are in the mailbox, on the disk.
bool copyAll(const lorvale::MessageList& messages, lorvale::MessageStore& target, bool allUnread,
             const std::string& title);

}  // namespace mailhost
