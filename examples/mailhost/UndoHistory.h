#pragma once
#include <optional>

#include "lorvale/message.h"
#include "lorvale/store.h"

namespace mailhost {

// Each run is a process of its own, so what `flag --delete` has marked is noted among the attributes of the
// mailbox for `undo`: groups of messages, the last one last.  Their numbers hold until a mailbox is compacted
// or rebuilt; on a server, where others may do that at any time, UIDs take their place.

void noteDeletion(lorvale::MessageStore& store, const lorvale::MessageList& messages);
/// Takes off the last group of which any message is left, and gives what is left of it; nullopt when there is
/// none.
std::optional<lorvale::MessageList> takeLastDeletion(lorvale::MessageStore& store);
void forgetDeletions(lorvale::MessageStore& store);
/// Those that are not marked as deleted yet.
lorvale::MessageList notYetDeleted(const lorvale::MessageList& messages);

}  // namespace mailhost
