#pragma once
#include <cstdint>
#include <vector>

#include "lorvale/message.h"
#include "lorvale/store/message_store.h"
#include "mail/stores/MboxScan.h"

namespace lorvale {

/// A message of a store that keeps its mail in one file: it knows where it lies there.  A mailbox holds one for
/// each of its messages, so this class stays small.
class TOCMessage : public Message {
public:
    TOCMessage() = default;
    explicit TOCMessage(MboxRange range) : _mboxRange(range) {}

    MboxRange mboxRange() const { return _mboxRange; }
    void setMboxRange(MboxRange range) { _mboxRange = range; }
    /// The length of its range.
    std::uint32_t messageSize() const override { return _mboxRange.length; }

private:
    MboxRange _mboxRange;
};

/// Where the messages of a store's own list lie: all of them of this class.
std::vector<MboxRange> rangesOf(const MessageList& messages);

}  // namespace lorvale
