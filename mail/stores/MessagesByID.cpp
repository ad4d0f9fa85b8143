#include "mail/stores/MessagesByID.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <functional>
#include <string>
#include <utility>

#include "lorvale/message.h"
#include "mail/stores/TOCMessage.h"

namespace lorvale {

namespace {

/// As many that look alike are compared one by one; more is a mailbox where seconds and length tell nothing.
constexpr int kMostAlike = 32;

/// Of the seconds that an identifier ends with and the length of what stands before them.
std::uint32_t roughDigest(std::int64_t seconds, std::size_t length) {
    constexpr std::uint32_t kSpread = 0x9E37'79B1;
    return (static_cast<std::uint32_t>(seconds) + static_cast<std::uint32_t>(length) * kSpread) * kSpread >> 7;
}

std::uint32_t roughDigest(std::string_view messageID) {
    const auto length = messageID.rfind('_') + 1;
    const auto digits = messageID.substr(length);
    std::int64_t seconds = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
    return roughDigest(seconds, length);
}

std::uint32_t digestOfWhole(std::string_view messageID) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>()(messageID));
}

bool continues(const MessageList& messages, const MessageList& known) {
    return known.size() <= messages.size() && std::equal(known.begin(), known.end(), messages.begin());
}

}  // namespace

void MessagesByID::prepare(const MessageList& messages) {
    if (_known == messages) return;
    if (!continues(messages, _known)) forget();
    const auto first = _entries.size();
    _entries.reserve(messages.size());
    std::string id;
    for (auto i = first; i < messages.size(); ++i) {
        auto& message = static_cast<TOCMessage&>(*messages[i]);
        if (_grain == Grain::rough && message.isListed()) {
            const auto shape = message.shapeOfID();
            _entries.push_back({roughDigest(shape.seconds, shape.length)});
            continue;
        }
        message.putMessageID(id);
        _entries.push_back({_grain == Grain::rough ? roughDigest(id) : digestOfWhole(id)});
    }
    const bool isTight = _entries.size() > _heads.size();
    if (isTight) _heads.assign(std::bit_ceil(_entries.size()), kNone);
    link(isTight ? 0 : first);
    _known = messages;
}

/// The entries from there on into their chains.
void MessagesByID::link(std::size_t first) {
    for (auto i = first; i < _entries.size(); ++i) {
        auto& head = headOf(_entries[i].digest);
        _entries[i].next = std::exchange(head, static_cast<std::uint32_t>(i));
    }
}

void MessagesByID::forget() {
    _known = {};
    _entries.clear();
    std::ranges::fill(_heads, kNone);
}

/// Nullopt when too many look alike.
std::optional<std::shared_ptr<Message>> MessagesByID::look(const MessageList& messages,
                                                           std::string_view messageID) {
    if (_entries.empty()) return nullptr;
    const auto digest = _grain == Grain::rough ? roughDigest(messageID) : digestOfWhole(messageID);
    int alike = 0;
    for (auto i = headOf(digest); i != kNone; i = _entries[i].next) {
        if (_entries[i].digest != digest) continue;
        if (messages[i]->messageID() == messageID) return messages[i];
        if (_grain == Grain::rough && ++alike == kMostAlike) return std::nullopt;
    }
    return nullptr;
}

std::shared_ptr<Message> MessagesByID::find(const MessageList& messages, std::string_view messageID) {
    const MutexLock lock(_mutex);
    prepare(messages);
    if (auto found = look(messages, messageID)) return *found;
    forget();
    _grain = Grain::whole;
    prepare(messages);
    return look(messages, messageID).value_or(nullptr);
}

}  // namespace lorvale
