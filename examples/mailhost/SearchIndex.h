#pragma once
#include "lorvale/store.h"

namespace mailhost {

/// Turns on the index of a mailbox and waits, under a progress bar, until it has all messages.  Throws Failure
/// where it cannot be made.
void bringIndexUpToDate(lorvale::MessageStore& store);

}  // namespace mailhost
