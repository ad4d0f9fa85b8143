#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/message/list.h"

namespace lorvale {

/// What a mailbox keeps of its list between two openings: the file "CachedData".  Integers are 32 bits wide,
/// unsigned unless told otherwise, most significant byte first; a text is its length in bytes and the bytes.
///
/// Header, 12 bytes:
///   offset  size
///        0     4  magic      "LvIM"
///        4     4  version    2; any other is refused
///        8     4  checksum   CRC-32 of all that follows
///
/// Then
///   text     UIDVALIDITY     of the mailbox that this is the list of
///   text     UIDNEXT         the server's when list and server were the same; empty when they were not
///   4        total size      of the messages, in bytes, modulo 2^32
///   4        deleted size    of those that are marked as deleted
///   4        count           of the messages, which follow
///   three lists of places in these, each as a count and that many numbers from 0: marked as deleted, as the
///            user sees them, unread
///
/// A message:
///   text     UID             decimal digits
///   4        size            as the server reported it
///   4        headers         bits: 1 a sender, 2 a subject, 4 a date follows
///   text     sender, subject
///   8, 4     date            seconds since 1970, signed, and the zone in seconds east of UTC, signed
///   4, 4     flags           the bits of MessageFlags, and the priority
///   4        named flags     count + 1, and as many pairs of texts, name and value; 0: none were ever named
///   4        reserved        kept as found
///
/// A file is wholly what it was written as, or nothing.
struct StoreArchive {
    std::string uidValidity, uidNext;
    MessageList all, deleted, filtered, unread;  // of IMAPMessage
    std::uint32_t totalSize = 0, deletedSize = 0;
};
std::string bytesOf(const StoreArchive& archive);
/// nullopt, and the first broken rule in `whyNot`, for bytes that are no such file.
std::optional<StoreArchive> storeArchiveFromBytes(std::string_view bytes, std::string* whyNot = nullptr);

}  // namespace lorvale
