#pragma once
#include <memory>
#include <string_view>

#include "lorvale/export.h"

namespace lorvale {

class Message;

/// Reads a flat mailbox from its beginning to its end and hands out each message as soon as its end is found:
/// the first one of a large mailbox is there at once, and the memory needed does not grow with the mailbox.  A
/// store over the same file (BerkeleyMbox) finds all its messages before it opens.
///
/// Takes no lock and writes nothing; other programs may change the file meanwhile, and no message ever shows
/// other bytes than were found there.  Holds one file descriptor.  One thread at a time.
class LORVALE_EXPORT MboxReader {
public:
    /// Null where a store has to be asked, whose opening then tells why: another class of stores than
    /// BerkeleyMbox wants the path, or the file cannot be opened.
    static std::unique_ptr<MboxReader> readerForPath(std::string_view path);
    ~MboxReader();
    MboxReader(const MboxReader&) = delete;
    MboxReader& operator=(const MboxReader&) = delete;

    /// The next message, as the store would list it, in the order of the file; null at the end.  It has its
    /// header block with it, and reads its body when that is asked for.  Good as long as the reader is, and
    /// later like a message of a closed store.
    std::shared_ptr<Message> nextMessage();
    /// Once that was null: whether all messages were there that the file held at the beginning.  No, when
    /// another program has shortened or overwritten it meanwhile, and when reading failed or it has more than 4
    /// GB.
    bool hasReadAll() const;

private:
    class Pass;
    explicit MboxReader(std::unique_ptr<Pass> pass);
    const std::unique_ptr<Pass> _pass;
};

}  // namespace lorvale
