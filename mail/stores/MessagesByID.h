#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
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
    static constexpr std::uint32_t kNone = 0xFFFF'FFFF;
    /// What a digest is made of: the rough shape of an identifier is had without making it, and tells apart the
    /// mail of all but strange mailboxes.
    enum class Grain : std::uint8_t { rough, whole };
    struct Entry {
        std::uint32_t digest = 0;  // of the identifier
        std::uint32_t next = kNone;
    };

    void prepare(const MessageList& messages) LORVALE_REQUIRES(_mutex);
    void forget() LORVALE_REQUIRES(_mutex);
    std::optional<std::shared_ptr<Message>> look(const MessageList& messages, std::string_view messageID)
        LORVALE_REQUIRES(_mutex);
    void link(std::size_t first) LORVALE_REQUIRES(_mutex);
    std::uint32_t& headOf(std::uint32_t digest) LORVALE_REQUIRES(_mutex) {
        return _heads[digest & (_heads.size() - 1)];
    }

    Mutex _mutex;
    Grain _grain LORVALE_GUARDED_BY(_mutex) = Grain::rough;
    MessageList _known LORVALE_GUARDED_BY(_mutex);
    std::vector<Entry> _entries LORVALE_GUARDED_BY(_mutex);  // one a message, in their order
    /// Where the chains of entries begin, each from the last message to the first; a power of two of them.
    std::vector<std::uint32_t> _heads LORVALE_GUARDED_BY(_mutex);
};

}  // namespace lorvale
