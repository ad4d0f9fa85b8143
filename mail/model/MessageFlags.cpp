#include "lorvale/message/flags.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr std::string_view kYes = "Yes", kNo = "No";

/// The number a text begins with, as far as it fits; 0 without one.  A negative one counts round from 2^32, as
/// in any unsigned field.
std::uint32_t leadingNumber(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kAsciiWhite), text.size()));
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    std::uint32_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec == std::errc::result_out_of_range) return std::numeric_limits<std::uint32_t>::max();
    return negative ? 0 - number : number;
}

}  // namespace

bool boolForKey(const FlagDictionary& flags, std::string_view key, bool defaultValue) {
    const auto found = flags.find(key);
    return found == flags.end() ? defaultValue : equalIgnoringAsciiCase(found->second, kYes);
}

void setBool(FlagDictionary& flags, bool value, std::string_view forKey) {
    flags.insert_or_assign(std::string(forKey), std::string(value ? kYes : kNo));
}

std::shared_ptr<MessageFlags> MessageFlags::flagsForMessage(Message& /*message*/) {
    return std::make_shared<MessageFlags>();
}

MessageFlags::~MessageFlags() = default;

bool MessageFlags::_getFlagBitWithMask(std::uint32_t mask, std::string_view named) const {
    return _flags ? boolForKey(*_flags, named, false) : (_flagBits & mask) != 0;
}

void MessageFlags::_setFlagBit(std::uint32_t mask, std::string_view named, bool value) {
    _flagBits = (_flagBits & ~mask) | (value ? mask : 0);
    if (_flags) setBool(*_flags, value, named);
}

std::uint32_t MessageFlags::priority() const {
    if (!_flags) return _priority;
    const auto found = _flags->find(MessagePriorityLevel);
    return found == _flags->end() ? 0 : leadingNumber(found->second);
}

void MessageFlags::setPriority(std::uint32_t priority) {
    _priority = priority;
    if (_flags) _flags->insert_or_assign(std::string(MessagePriorityLevel), std::to_string(priority));
}

std::shared_ptr<FlagDictionary> MessageFlags::userFlags() {
    if (!_flags) _updateFlags();
    return _flags;
}

void MessageFlags::_updateFlags() {
    auto flags = std::make_shared<FlagDictionary>();
    for (const auto& each : {kUnreadFlag, kDeletedFlag, kRepliedToFlag, kEncryptedFlag}) {
        setBool(*flags, (_flagBits & each.mask) != 0, each.name);
    }
    flags->insert_or_assign(std::string(MessagePriorityLevel), std::to_string(_priority));
    _flags = std::move(flags);
}

void MessageFlags::setUserFlags(std::shared_ptr<FlagDictionary> flags) {
    _flags = std::move(flags);
}

std::optional<std::string> MessageFlags::objectForKey(std::string_view key) {
    const auto flags = userFlags();
    const auto found = flags->find(key);
    if (found == flags->end()) return std::nullopt;
    return found->second;
}

void MessageFlags::setObject(std::string_view value, std::string_view forKey) {
    userFlags()->insert_or_assign(std::string(forKey), std::string(value));
}

// Two of these flags objects on one dictionary look like a mistake; callers that work on a copy of the flags of
// a message and expect the message to show what they set count on it.
std::shared_ptr<MessageFlags> MessageFlags::copy() {
    auto flags = std::make_shared<MessageFlags>();
    flags->setRead(isRead());
    flags->setDeleted(isDeleted());
    flags->setRepliedTo(wasRepliedTo());
    flags->setEncrypted(isEncrypted());
    flags->setPriority(priority());
    flags->setUserFlags(userFlags());
    return flags;
}

std::string MessageFlags::description() const {
    return formatText("read %@, deleted %@, replied to %@, encrypted %@, priority %@%@", isRead() ? kYes : kNo,
                      isDeleted() ? kYes : kNo, wasRepliedTo() ? kYes : kNo, isEncrypted() ? kYes : kNo,
                      priority(), _flags ? ", with a dictionary" : "");
}

}  // namespace lorvale
