#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "lorvale/values/data.h"
#include "lorvale/values/date.h"
#include "mail/stores/MboxScan.h"

namespace lorvale {

/// The bytes of a table of contents: a header, then one record a message, without gaps.  Integers are 32 bits
/// wide, unsigned, most significant byte first.
///
/// Header, 32 bytes:
///   offset  size
///        0     4  version    900000; 890712 is read, too, and written back; any other is refused
///        4     4  count      of the records
///        8     4  timeStamp  when the file "mbox" beside it was modified, in seconds since 1970
///       12    20  display    five floats for a viewer (a height; x, y, width, height of a window): kept
///
/// Record, 39 bytes and the three texts:
///        0     4  length     of the whole record, these bytes included
///        4     4  location   of the message in the file "mbox"
///        8     4  length     of the message there
///       12     4  date       year * 512 + month * 32 + day of delivery, in the local zone
///       16     1  status     "*" unread, " " read, "d" deleted; on reading also ">" and "D" for the last two
///       17     1  reference  the kind of body, see ReferenceState; others are kept as they are
///       18     2  filler     two blanks
///       20     n  sender     in the default C string encoding, with a byte 0 behind it
///        .     m  subject    likewise
///        .     k  attachment likewise; a folder in the mailbox, or nothing
///        .    12  reserved   three words 0
///        .     4  posix      when it was delivered, in seconds since 1970; 0: only the day is known
/// The last four words were added one after the other, so older records end before any of them.

struct TOCHeader {
    static constexpr std::size_t kSize = 32;
    static constexpr std::uint32_t kVersion = 900'000, kOldVersion = 890'712;

    std::uint32_t version = kVersion, count = 0, timeStamp = 0;
    std::array<std::uint32_t, 5> display{};  // the bits of the floats
    friend bool operator==(const TOCHeader&, const TOCHeader&) = default;
};

/// When a message was delivered, as a record tells it.
struct TOCTime {
    std::uint32_t day = 0, posix = 0;

    /// Of a listedDate().
    static TOCTime of(const Date& date);
    Date date() const;
};

/// The texts are bytes as they stand in the file.
struct TOCRecord {
    static constexpr std::size_t kFixedSize = 39;

    MboxRange range;
    char status = ' ';
    char refState = ' ';
    std::string_view sender, subject, attachment;
    TOCTime time;
};

void append(ByteBuffer& table, const TOCHeader& header);
/// None of the texts may hold a byte 0.
void append(ByteBuffer& table, const TOCRecord& record);

/// A record that stays in memory as its bytes stand in a file: that takes less room than its parts, and no
/// time. Copies share the bytes; empty: none.
class KeptTOCRecord {
public:
    KeptTOCRecord() = default;
    /// With bytes of its own; see append().
    explicit KeptTOCRecord(const TOCRecord& record);
    /// Of bytes that decodeTable() has given, with a share of what owns them.
    explicit KeptTOCRecord(std::shared_ptr<const char[]> bytes) : _bytes(std::move(bytes)) {}

    bool empty() const { return _bytes == nullptr; }
    /// Good as long as this or a copy of it; all blank when empty.  Place and status are those of the bytes,
    /// whatever has become of the message.
    TOCRecord read() const;

private:
    std::shared_ptr<const char[]> _bytes;
};

/// Gives the records of a table one after the other, with the bytes of each, good as long as the table.  Throws
/// NamedException "Bad TOC" or "Bogus table of contents" for what is none: a version that is not known, a date
/// or filler that cannot be, a length or a count that leads out of the bytes.  Bytes behind the last record do
/// no harm; they are answered.
std::size_t decodeTable(std::string_view table, TOCHeader& header,
                        const std::function<void(const TOCRecord&, std::string_view bytes)>& found);

}  // namespace lorvale
