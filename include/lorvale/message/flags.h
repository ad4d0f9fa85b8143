#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/message/share.h"
#include "lorvale/platform/small_mutex.h"

namespace lorvale {

class Message;
class MessageFlags;
class PropertyList;

/// The archived form: the dictionary, the bits and the priority, in this order.  Reading takes what is there
/// and leaves the rest at its first value.
LORVALE_EXPORT PropertyList toPropertyList(const MessageFlags& flags);
LORVALE_EXPORT std::shared_ptr<MessageFlags> messageFlagsFromPropertyList(const PropertyList& archive);

// The public names of the flags, for MessageFlags::objectForKey() and MessageStore::setFlags().
inline constexpr std::string_view MessageIsUnread = "MessageIsUnread";
inline constexpr std::string_view MessageIsDeleted = "MessageIsDeleted";
inline constexpr std::string_view MessageWasRepliedTo = "MessageWasRepliedTo";
inline constexpr std::string_view MessageIsEncrypted = "MessageIsEncrypted";
inline constexpr std::string_view MessagePriorityLevel = "MessagePriorityLevel";

/// Flags by name: "Yes" or "No", the priority as a decimal number, whatever else a host puts there.
using FlagDictionary = std::map<std::string, std::string, std::less<>>;

/// "Yes" in any case of letters is true, any other text false; without an entry the default holds.
LORVALE_EXPORT bool boolForKey(const FlagDictionary& flags, std::string_view key, bool defaultValue);
LORVALE_EXPORT void setBool(FlagDictionary& flags, bool value, std::string_view forKey);

/// The status of one message, in two forms: bits, which a store keeps, and a dictionary of named values, made
/// when somebody asks for it.  Once it is there the dictionary is the truth for the named flags: a change
/// through setObject() or setUserFlags() is not seen in the bits.  Any thread.
class LORVALE_EXPORT MessageFlags {
public:
    // Bit 0 stands for unread, so that no bits at all are an ordinary message that was read.
    static constexpr std::uint32_t kUnread = 1, kDeleted = 2, kRepliedTo = 4, kEncrypted = 8;

    static std::shared_ptr<MessageFlags> flagsForMessage(Message& message);

    MessageFlags() = default;
    explicit MessageFlags(std::uint32_t flagBits, std::uint32_t priority = 0)
        : _flagBits(flagBits), _priority(priority) {}
    MessageFlags(const MessageFlags&) = delete;
    MessageFlags& operator=(const MessageFlags&) = delete;
    ~MessageFlags();

    /// A new object with the same flags.  Makes the dictionary, which from then on belongs to both: what is set
    /// in one of the two is seen in the other.
    std::shared_ptr<MessageFlags> copy();

    bool isRead() const { return !flag(kUnreadFlag); }
    void setRead(bool value) { setFlag(kUnreadFlag, !value); }
    bool isDeleted() const { return flag(kDeletedFlag); }
    void setDeleted(bool value) { setFlag(kDeletedFlag, value); }
    bool wasRepliedTo() const { return flag(kRepliedToFlag); }
    void setRepliedTo(bool value) { setFlag(kRepliedToFlag, value); }
    bool isEncrypted() const { return flag(kEncryptedFlag); }
    void setEncrypted(bool value) { setFlag(kEncryptedFlag, value); }
    std::uint32_t priority() const;
    void setPriority(std::uint32_t priority);

    /// The dictionary as it is now, made on demand.
    Share<FlagDictionary> userFlags();
    /// Replaces the dictionary, which a copy then no longer shares, and leaves the bits alone; nullopt goes
    /// back to the bits.
    void setUserFlags(std::optional<FlagDictionary> flags);
    std::optional<std::string> objectForKey(std::string_view key);
    void setObject(std::string_view value, std::string_view forKey);
    /// The same as objectForKey() without making the dictionary.
    std::optional<std::string> valueForKey(std::string_view key) const;

    /// The bits alone, whatever the dictionary says: the compact form.
    std::uint32_t flagBits() const;

    std::string description() const;

private:
    friend PropertyList toPropertyList(const MessageFlags& flags);
    friend std::shared_ptr<MessageFlags> messageFlagsFromPropertyList(const PropertyList& archive);

    struct Flag {
        std::uint32_t mask;
        std::string_view name;
    };
    static constexpr Flag kUnreadFlag{kUnread, MessageIsUnread}, kDeletedFlag{kDeleted, MessageIsDeleted},
        kRepliedToFlag{kRepliedTo, MessageWasRepliedTo}, kEncryptedFlag{kEncrypted, MessageIsEncrypted};

    /// The dictionary that belongs to these flags and their copies.
    class SharedDictionary;

    bool flag(Flag flag) const { return _getFlagBitWithMask(flag.mask, flag.name); }
    void setFlag(Flag flag, bool value) { _setFlagBit(flag.mask, flag.name, value); }
    bool _getFlagBitWithMask(std::uint32_t mask, std::string_view named) const;
    void _setFlagBit(std::uint32_t mask, std::string_view named, bool value);
    /// Null as long as nobody has asked for it.
    std::shared_ptr<SharedDictionary> dictionary() const;
    std::shared_ptr<SharedDictionary> dictionaryOnDemand();

    std::shared_ptr<SharedDictionary> _flags LORVALE_GUARDED_BY(_mutex);
    std::uint32_t _flagBits LORVALE_GUARDED_BY(_mutex) = 0;
    std::uint32_t _priority LORVALE_GUARDED_BY(_mutex) = 0;
    mutable SmallMutex _mutex;
};

}  // namespace lorvale
