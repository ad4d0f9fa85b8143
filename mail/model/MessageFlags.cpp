#include "lorvale/message/flags.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/values/format.h"
#include "lorvale/values/property_list.h"
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

std::uint32_t smallNumber(const PropertyList& value) {
    return static_cast<std::uint32_t>(
        std::clamp<std::int64_t>(value.integer(), 0, std::numeric_limits<std::uint32_t>::max()));
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

class MessageFlags::SharedDictionary {
public:
    explicit SharedDictionary(FlagDictionary flags)
        : _flags(std::make_shared<const FlagDictionary>(std::move(flags))) {}

    std::shared_ptr<const FlagDictionary> now() const {
        const SmallMutexLock lock(_mutex);
        return _flags;
    }
    void set(std::string_view value, std::string_view forKey) {
        const SmallMutexLock lock(_mutex);
        auto next = std::make_shared<FlagDictionary>(*_flags);
        next->insert_or_assign(std::string(forKey), std::string(value));
        _flags = std::move(next);
    }

private:
    mutable SmallMutex _mutex;
    std::shared_ptr<const FlagDictionary> _flags LORVALE_GUARDED_BY(_mutex);
};

std::shared_ptr<MessageFlags::SharedDictionary> MessageFlags::dictionary() const {
    const SmallMutexLock lock(_mutex);
    return _flags;
}

std::shared_ptr<MessageFlags::SharedDictionary> MessageFlags::dictionaryOnDemand() {
    const SmallMutexLock lock(_mutex);
    if (_flags) return _flags;
    FlagDictionary flags;
    for (const auto& each : {kUnreadFlag, kDeletedFlag, kRepliedToFlag, kEncryptedFlag}) {
        setBool(flags, (_flagBits & each.mask) != 0, each.name);
    }
    flags.insert_or_assign(std::string(MessagePriorityLevel), std::to_string(_priority));
    _flags = std::make_shared<SharedDictionary>(std::move(flags));
    return _flags;
}

bool MessageFlags::_getFlagBitWithMask(std::uint32_t mask, std::string_view named) const {
    const auto flags = dictionary();
    return flags ? boolForKey(*flags->now(), named, false) : (flagBits() & mask) != 0;
}

void MessageFlags::_setFlagBit(std::uint32_t mask, std::string_view named, bool value) {
    const SmallMutexLock lock(_mutex);
    _flagBits = (_flagBits & ~mask) | (value ? mask : 0);
    if (_flags) _flags->set(value ? kYes : kNo, named);
}

std::uint32_t MessageFlags::flagBits() const {
    const SmallMutexLock lock(_mutex);
    return _flagBits;
}

std::uint32_t MessageFlags::priority() const {
    const SmallMutexLock lock(_mutex);
    if (!_flags) return _priority;
    const auto flags = _flags->now();
    const auto found = flags->find(MessagePriorityLevel);
    return found == flags->end() ? 0 : leadingNumber(found->second);
}

void MessageFlags::setPriority(std::uint32_t priority) {
    const SmallMutexLock lock(_mutex);
    _priority = priority;
    if (_flags) _flags->set(std::to_string(priority), MessagePriorityLevel);
}

Share<FlagDictionary> MessageFlags::userFlags() {
    return Share(dictionaryOnDemand()->now());
}

void MessageFlags::setUserFlags(std::optional<FlagDictionary> flags) {
    auto next = flags ? std::make_shared<SharedDictionary>(*std::move(flags)) : nullptr;
    const SmallMutexLock lock(_mutex);
    _flags.swap(next);
}

std::optional<std::string> MessageFlags::valueForKey(std::string_view key) const {
    const auto shared = dictionary();
    if (shared == nullptr) {
        for (const auto& each : {kUnreadFlag, kDeletedFlag, kRepliedToFlag, kEncryptedFlag})
            if (each.name == key) return std::string((flagBits() & each.mask) != 0 ? kYes : kNo);
        return key == MessagePriorityLevel ? std::optional(std::to_string(priority())) : std::nullopt;
    }
    const auto flags = shared->now();
    const auto found = flags->find(key);
    return found != flags->end() ? std::optional(found->second) : std::nullopt;
}

std::optional<std::string> MessageFlags::objectForKey(std::string_view key) {
    const auto flags = dictionaryOnDemand()->now();
    const auto found = flags->find(key);
    if (found == flags->end()) return std::nullopt;
    return found->second;
}

void MessageFlags::setObject(std::string_view value, std::string_view forKey) {
    dictionaryOnDemand()->set(value, forKey);
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
    auto shared = dictionaryOnDemand();
    const SmallMutexLock lock(flags->_mutex);
    flags->_flags = std::move(shared);
    return flags;
}

std::string MessageFlags::description() const {
    return formatText("read %@, deleted %@, replied to %@, encrypted %@, priority %@%@", isRead() ? kYes : kNo,
                      isDeleted() ? kYes : kNo, wasRepliedTo() ? kYes : kNo, isEncrypted() ? kYes : kNo,
                      priority(), dictionary() ? ", with a dictionary" : "");
}

// An array of three, as the classes that hold flags among their own values count on:
//   0  the dictionary, texts by name; false where it was not made
//   1  the bits
//   2  the priority
PropertyList toPropertyList(const MessageFlags& flags) {
    std::shared_ptr<MessageFlags::SharedDictionary> shared;
    std::uint32_t bits = 0, priority = 0;
    {
        const SmallMutexLock lock(flags._mutex);
        shared = flags._flags;
        bits = flags._flagBits;
        priority = flags._priority;
    }
    PropertyList::Array archive;
    if (shared) {
        PropertyList::Dictionary texts;
        const auto now = shared->now();
        for (const auto& [key, value] : *now) texts.emplace(key, value);
        archive.emplace_back(std::move(texts));
    } else {
        archive.emplace_back(false);
    }
    archive.emplace_back(bits);
    archive.emplace_back(priority);
    return archive;
}

std::shared_ptr<MessageFlags> messageFlagsFromPropertyList(const PropertyList& archive) {
    auto flags = std::make_shared<MessageFlags>(smallNumber(archive[1]), smallNumber(archive[2]));
    if (const auto* const texts = archive[0].get<PropertyList::Dictionary>()) {
        FlagDictionary named;
        for (const auto& [key, value] : *texts) named.emplace(key, value.string());
        flags->setUserFlags(std::move(named));
    }
    return flags;
}

}  // namespace lorvale
