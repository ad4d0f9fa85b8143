#pragma once
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/imap/value.h"
#include "lorvale/message/headers.h"
#include "lorvale/values/data.h"

namespace lorvale {

/// The messages that a command is about, by number or by UID, whichever the connection is set to.
struct IMAPMessageSet {
    std::vector<std::uint32_t> numbers;         ///< in any order
    std::optional<std::uint32_t> allFrom = {};  ///< and all others from this one on

    IMAPMessageSet(std::vector<std::uint32_t> listed) : numbers(std::move(listed)) {}
    IMAPMessageSet(std::initializer_list<std::uint32_t> listed) : numbers(listed) {}
    static IMAPMessageSet from(std::uint32_t first) {
        IMAPMessageSet set{};
        set.allFrom = first;
        return set;
    }
};

/// What a server told of one message in one answer (RFC 3501, section 7.4.2): items by their names, in any case
/// of letters.  Texts are slices of the answer's bytes, which they keep alive; nothing is copied.
class LORVALE_EXPORT IMAPFetched {
public:
    IMAPFetched(std::uint32_t number, IMAPValue items) : _number(number), _items(std::move(items)) {}

    std::uint32_t number() const { return _number; }  ///< its place in the mailbox now
    std::optional<std::uint32_t> uid() const;
    std::optional<std::uint32_t> size() const;         ///< RFC822.SIZE
    std::optional<std::uint64_t> modSequence() const;  ///< MODSEQ (RFC 7162)
    /// Nullopt when the answer tells none, which is not the same as a message without flags.
    std::optional<std::vector<std::string_view>> flags() const;
    /// The bytes of the first section that was told, BODY[...], as they are: lines end in CRLF.
    std::optional<Data> section() const;
    /// "date", "subject" and "from", decoded; empty where no envelope was told.
    CachedHeaders envelope() const;
    /// Any other item; null when it was not told.  Lives as long as this object.
    const IMAPValue* item(std::string_view name) const;
    const IMAPValue& items() const { return _items; }  ///< names and values in turn

private:
    std::uint32_t _number;
    IMAPValue _items;
};

/// Where messages lie that were copied, moved or appended, as a server with UIDPLUS tells it (RFC 4315).
struct IMAPPlaces {
    std::uint32_t uidValidity = 0;        ///< of the mailbox that they lie in now; 0: the server told nothing
    std::vector<std::uint32_t> from, to;  ///< UIDs, one for one; `from` is empty for what was appended
};

}  // namespace lorvale
