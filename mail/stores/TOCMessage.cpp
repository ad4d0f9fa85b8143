#include "mail/stores/TOCMessage.h"

namespace lorvale {

std::vector<MboxRange> rangesOf(const MessageList& messages) {
    std::vector<MboxRange> ranges;
    ranges.reserve(messages.size());
    for (const auto& message : messages) ranges.push_back(static_cast<const TOCMessage&>(*message).mboxRange());
    return ranges;
}

}  // namespace lorvale
