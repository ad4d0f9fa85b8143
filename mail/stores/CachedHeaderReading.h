#pragma once
#include <optional>

#include "lorvale/message.h"
#include "lorvale/values/data.h"

namespace lorvale {

enum class HeaderSpelling {
    ofMessage,    ///< "FROM" where the message has it so
    capitalised,  ///< "From", "Subject", "Date"
};

/// The cached headers of a message for a store that keeps nothing but the message itself: the first value of
/// each, read from its header block.  A message whose headers were changed in memory gives the changed values.
CachedHeaders readCachedHeaders(Message& message, const std::optional<Data>& headerBlock,
                                HeaderSpelling spelling);

}  // namespace lorvale
