#pragma once
#include "lorvale/store/message_store.h"

namespace lorvale {

/// Takes messages out of a list, every occurrence of each.  Linear in both.
void removeMessages(MessageList& from, const MessageList& gone);

}  // namespace lorvale
