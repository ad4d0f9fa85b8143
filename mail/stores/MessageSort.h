#pragma once
#include <string_view>

#include "lorvale/store/message_store.h"

namespace lorvale {

// The orders of a listing, as comparisons of two messages of a store: below, at or above 0.  On a tie each goes
// on with the date, which never ends in a tie.

/// By date received; of equal dates the message that comes first in the store is the smaller.
int _compareMsgsByDate(Message& a, Message& b, const MessageStore& store);
/// By subject without the marks of replies, ignoring case.  A message without a subject is the smaller; of two
/// such, whichever is asked about first.
int _compareMsgsBySubject(Message& a, Message& b, const MessageStore& store);
/// By the name a person reads in the sender, ignoring case; without a sender as without a subject.
int _compareMsgsBySender(Message& a, Message& b, const MessageStore& store);
int _compareMsgsBySize(Message& a, Message& b, const MessageStore& store);

/// The messages by one of the sort orders of the store; MessageStoreSortByNumber and an unknown one leave the
/// list as it is.  The result is one in which each message compares below the next.  (Two messages without a
/// subject, or without a sender, each compare below the other, so no order among them is wrong; they keep the
/// order that they had, where an ordinary sort could run wild on such a comparison.)  Reads each message's
/// headers once and lets go again of those that it made them load.
MessageList sortedMessages(const MessageList& messages, std::string_view sortOrder, const MessageStore& store);

}  // namespace lorvale
