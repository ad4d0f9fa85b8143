#pragma once
#include <optional>

#include "lorvale/values/data.h"

namespace lorvale {

class Message;

/// A message as it stands in a mailbox, with an envelope line: header and body.
struct AppendableBytes {
    Data header, body;

    /// Nullopt, after a log line, when either part cannot be had: such a message is not appended, or it would
    /// look like an empty one.  What this alone has loaded of the message is given back.
    static std::optional<AppendableBytes> ofMessage(Message& message);
};

}  // namespace lorvale
