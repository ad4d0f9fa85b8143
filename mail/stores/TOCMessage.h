#pragma once
#include <atomic>
#include <cstdint>

#include "lorvale/message.h"
#include "mail/stores/MboxScan.h"

namespace lorvale {

/// A message of a store that keeps its mail in one file: it knows where it lies there.  A mailbox holds one for
/// each of its messages, so this class stays small.  Any thread may ask for the place; the store that changes
/// it sees to it that its file changes with it.
class TOCMessage : public Message {
public:
    TOCMessage() = default;
    explicit TOCMessage(MboxRange range) : _mboxRange(range) {}

    MboxRange mboxRange() const { return _mboxRange; }
    void setMboxRange(MboxRange range) { _mboxRange = range; }
    /// For a message that was taken out of the file: it keeps its size, and no place.
    void forgetPlace() { _mboxRange = MboxRange{kNowhere, messageSize()}; }
    /// The length of its range.
    std::uint32_t messageSize() const override { return mboxRange().length; }

private:
    static constexpr std::uint32_t kNowhere = 0xFFFF'FFFF;  // where no message begins in 4 GB

    std::atomic<MboxRange> _mboxRange{MboxRange{}};
    static_assert(std::atomic<MboxRange>::is_always_lock_free);
};

}  // namespace lorvale
