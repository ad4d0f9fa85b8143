#pragma once
#include <memory>
#include <string>
#include <vector>

#include "lorvale/search/index_manager.h"
#include "mail/search/MboxIndex.h"

namespace lorvale {

/// Searches indexes as one, in the state that all of them have at that moment.  Any thread; holds
/// MboxMutex::shared() while it searches, and not while it looks for the messages.
///
/// An exception of the toolkit ends in the error of the result, which then has what was found before it, and in
/// four lines in the log.  An index that cannot be read any more is noted as damaged.
MessageHits searchIndexes(const std::vector<std::shared_ptr<MboxIndex>>& indexes, const MessageQuery& query);

}  // namespace lorvale
