#include "mail/stores/MessagesByID.h"

#include <algorithm>
#include <functional>
#include <string>

#include "lorvale/message.h"
#include "mail/stores/TOCMessage.h"

namespace lorvale {

namespace {

std::uint64_t wideDigestOf(std::string_view messageID) {
    return std::hash<std::string_view>()(messageID);
}

bool continues(const MessageList& messages, const MessageList& known) {
    return known.size() <= messages.size() && std::equal(known.begin(), known.end(), messages.begin());
}

}  // namespace

void MessagesByID::prepare(const MessageList& messages) {
    if (_known == messages) return;
    if (!continues(messages, _known)) _places.clear();
    const auto first = static_cast<std::ptrdiff_t>(_places.size());
    _places.reserve(messages.size());
    std::string id;
    for (auto i = _places.size(); i < messages.size(); ++i) {
        static_cast<TOCMessage&>(*messages[i]).putMessageID(id);
        _places.emplace_back(wideDigestOf(id), static_cast<std::uint32_t>(i));
    }
    std::ranges::sort(_places.begin() + first, _places.end());
    if (first > 0) std::ranges::inplace_merge(_places, _places.begin() + first);
    _known = messages;
}

std::shared_ptr<Message> MessagesByID::find(const MessageList& messages, std::string_view messageID) {
    const MutexLock lock(_mutex);
    prepare(messages);
    const auto digest = wideDigestOf(messageID);
    const auto first =
        std::ranges::lower_bound(_places, digest, {}, &std::pair<std::uint64_t, std::uint32_t>::first);
    auto each = std::ranges::upper_bound(_places, digest, {}, &std::pair<std::uint64_t, std::uint32_t>::first);
    while (each != first) {
        const auto& message = messages[(--each)->second];
        if (message->messageID() == messageID) return message;
    }
    return nullptr;
}

}  // namespace lorvale
