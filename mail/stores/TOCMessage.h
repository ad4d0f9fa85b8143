#pragma once
#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/message.h"
#include "mail/stores/MboxScan.h"
#include "mail/stores/TOCFormat.h"

namespace lorvale {

/// What kind of body a listed message has; the numbers are the bytes that stand in files.
namespace ReferenceState {
inline constexpr char plain = ' ', tarn = 'n', rich = 'r', voice = 'v', mime = 'm', html = 'h';
}

/// What a table of contents says of a message besides its place and its status.  The texts are as the file can
/// hold them: see TOCListing::ofHeaderBlock().
struct TOCListing {
    std::string sender, subject;
    Date date;               ///< of delivery; see listedDate()
    std::string attachment;  ///< the name of a folder in the mailbox, or empty
    char refState = ReferenceState::plain;

    /// Of a message whose headers, with the envelope line, are these bytes.  It depends on them alone, so that
    /// a message is listed alike when it is appended and when its table is made anew.  Mail that the user sent
    /// is listed under whom it went to.
    static TOCListing ofHeaderBlock(std::string_view block);
};

/// A date as a table can hold it.  Its place in a file has room for the seconds from 1970 to 2106, and 0 stands
/// for none there: other dates become noon of their day, in the local zone, from the year 0 on.
Date listedDate(const Date& date);
/// Year * 512 + month * 32 + day, in the local zone.
std::uint32_t tocSillyDateInt(const Date& date);
/// Whether day, month and year are in their ranges; the day need not exist.
bool isTocDay(std::uint32_t number);
/// Noon of that day in the local zone; nullopt for what is none.
std::optional<Date> dateFromTocInt(std::uint32_t number);

/// A message of a store that keeps its mail in one file: it knows where it lies there, and if the store has a
/// table of contents, what stands in that.  A mailbox holds one for each of its messages, so this class stays
/// small.  Any thread may ask; the store that changes the place sees to it that its file changes with it, and
/// only the thread that changes the store sets the status.
class TOCMessage : public Message {
public:
    TOCMessage() = default;
    /// A message that no table lists.
    explicit TOCMessage(MboxRange range) : _mboxRange(std::bit_cast<std::uint64_t>(range)) {}
    TOCMessage(MboxRange range, const TOCListing& listing);
    /// As a table has it, with `record` for what the kept one says.
    TOCMessage(const TOCRecord& record, KeptTOCRecord kept);

    /// A new listing of any message, with its place if it has one, its status and no store.  Null when its
    /// headers cannot be had.
    static std::shared_ptr<TOCMessage> TOCMessageFromMessage(Message& message);
    /// What tells apart the messages of a mailbox that has a table: nothing but these three, so that the table
    /// alone gives it.  Two messages with the same subject from the same sender in the same second have the
    /// same one.
    static std::string messageIDForSender(std::string_view sender, std::string_view subject, const Date& date);

    MboxRange mboxRange() const { return std::bit_cast<MboxRange>(_mboxRange.load()); }
    void setMboxRange(MboxRange range) { _mboxRange = std::bit_cast<std::uint64_t>(range); }
    /// For a message that was taken out of the file: it keeps its size, and no place.
    void forgetPlace() { setMboxRange({kNowhere, messageSize()}); }
    /// The length of its range.
    std::uint32_t messageSize() const override { return mboxRange().length; }

    bool isRead() const { return (_status & kUnread) == 0; }
    void setIsRead(bool isRead) { setStatus(kUnread, !isRead); }
    bool isDeleted() const { return (_status & kDeleted) != 0; }
    void setIsDeleted(bool isDeleted) { setStatus(kDeleted, isDeleted); }

    // Of the listing; empty without one.
    bool isListed() const { return !_listing.empty(); }
    /// "subject", "from" and "date".
    CachedHeaders listing() const;
    std::string sender() const;
    std::string subject() const;
    Date dateReceived() const;
    std::string attachment() const;
    char refState() const { return _listing.read().refState; }
    /// What a table would say now, good as long as the message.
    TOCRecord record() const;

    /// messageIDForSender() of the listing; without one what any message answers.
    std::string messageID() override;
    /// The same into a text that is used for one message after the other.
    void putMessageID(std::string& into);
    /// Of a listed one: its seconds, and how many bytes stand before them.
    struct IDShape {
        std::int64_t seconds = 0;
        std::size_t length = 0;
    };
    IDShape shapeOfID() const;
    std::optional<std::string> messageTypeImageName() const override;
    /// "Rich MIME" and the like.
    std::string_view typeDescription() const;
    std::string description() override;

private:
    static constexpr std::uint32_t kNowhere = 0xFFFF'FFFF;  // where no message begins in 4 GB
    static constexpr std::uint8_t kUnread = 1, kDeleted = 2;

    static std::uint8_t statusOf(char inTable) {
        return inTable == '*' ? kUnread : inTable == 'd' ? kDeleted : 0;
    }
    void setStatus(std::uint8_t bit, bool on) {
        _status = static_cast<std::uint8_t>(on ? _status | bit : _status & ~bit);
    }

    std::atomic<std::uint8_t> _status = 0;
    std::atomic<std::uint64_t> _mboxRange = 0;  // a whole one: no reader may see half of a change
    KeptTOCRecord _listing;                     // never changes
};

}  // namespace lorvale
