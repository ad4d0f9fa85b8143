#pragma once
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "lorvale/message/list.h"
#include "lorvale/platform/mutex.h"

namespace lorvale {

/// Finds the messages of a list, TOCMessages all of them, by their identifiers.  It remembers those of the list
/// that it was asked about last, and reads on where the next list goes on.  Any thread.
class MessagesByID {
public:
    /// Of several with the same identifier the last one; null when there is none.
    std::shared_ptr<Message> find(const MessageList& messages, std::string_view messageID);

private:
    void prepare(const MessageList& messages) LORVALE_REQUIRES(_mutex);

    Mutex _mutex;
    MessageList _known LORVALE_GUARDED_BY(_mutex);
    /// Digests of the identifiers, in order, and the places of their messages.
    std::vector<std::pair<std::uint64_t, std::uint32_t>> _places LORVALE_GUARDED_BY(_mutex);
};

}  // namespace lorvale
