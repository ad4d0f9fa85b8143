#pragma once
#include <optional>
#include <string>

#include "mail/search/IndexAnalysis.h"

namespace lorvale {

class Message;

/// The text under which a message is found: its header block, then its body as it is shown first, whatever
/// alternative somebody has picked to look at.  Nullopt where the bytes of the message cannot be had.
///
/// Loads nothing into the message, whose caches belong to who looks at it.  Any thread.
std::optional<std::string> indexedText(Message& message, IndexedForm form);

}  // namespace lorvale
