#pragma once
#include <memory>
#include <optional>
#include <string>

#include "mail/stores/AppendableBytes.h"

namespace lorvale {

class Message;

/// What a directory mailbox keeps of a message in the older rich format: its document is laid out in a
/// directory of the mailbox, to which a header then refers, and its body is empty.  Nullopt for all other
/// messages and, after a log line, for one whose document cannot be laid out: they are kept as they came.
std::optional<AppendableBytes> convertedForMailbox(const std::shared_ptr<Message>& message,
                                                   const std::string& mailbox);

}  // namespace lorvale
