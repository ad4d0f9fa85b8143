#pragma once
#include <cstdint>
#include <optional>
#include <vector>

#include "lorvale/store.h"

namespace mailhost {

// Each run is a process of its own, so what `flag --delete` has marked is noted among the attributes of the
// mailbox for `undo`: groups of message numbers, the last one last.  Numbers hold until a mailbox is compacted
// or rebuilt.

void noteDeletion(lorvale::MessageStore& store, const std::vector<std::uint64_t>& numbers);
/// Takes the last group off; nullopt when there is none.
std::optional<std::vector<std::uint64_t>> takeLastDeletion(lorvale::MessageStore& store);
void forgetDeletions(lorvale::MessageStore& store);

}  // namespace mailhost
