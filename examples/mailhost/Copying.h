#pragma once
#include <string>

#include "lorvale/message.h"
#include "lorvale/store.h"

namespace mailhost {

class Mailbox;

/// Appends copies in runs of equal status, so that it stays, and gives back what was loaded of each, under a
/// progress bar.  Whether all of them are in the mailbox, on the disk.
bool copyAll(const lorvale::MessageList& messages, lorvale::MessageStore& target, bool allUnread,
             const std::string& title);

/// Copies of messages of one mailbox into another.  All of them are there, on the disk, when it returns, or
/// wait there for the server; else it throws Failure.  Within an account the server copies.
void copyInto(const std::string& to, const Mailbox& source, const lorvale::MessageList& messages);

/// Throws Failure for a mailbox out of which takeOut() could take nothing now.
void needServerToTakeOut(const Mailbox& mailbox);
/// Takes out of a mailbox what is in another one now: marks it as deleted, for `undo` to take back, or, where
/// no marks are kept, at once.
void takeOut(Mailbox& mailbox, const lorvale::MessageList& messages);

}  // namespace mailhost
