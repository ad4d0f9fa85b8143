#pragma once
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/store/check.h"

namespace lorvale {

/// Walks the search index of a directory mailbox and names every broken rule, each as a warning, since an index
/// is made anew from the mail; checkMailbox() looks at the mail itself.  Without an index there is nothing to
/// find, and no failure.  Changes nothing and needs no open store; while somebody writes the index, what is
/// found may be of two states.  Any thread.
LORVALE_EXPORT MailboxReport checkIndex(std::string_view mailboxPath);

}  // namespace lorvale
