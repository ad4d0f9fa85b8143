#pragma once
#include <memory>
#include <optional>
#include <string>

#include "lorvale/export.h"
#include "lorvale/message/headers.h"
#include "lorvale/values/data.h"

namespace lorvale {

class Message;
class MessageFlags;
class MessageStore;

/// Where a message gets what it does not hold itself: as a rule its mailbox, but a message, its headers, flags
/// and body know no more of it than these few questions.  Held by a shared_ptr; messages refer to it weakly.
///
/// Any thread may ask; an implementation locks what its answers need.  The message is one that was given this
/// source, and is not kept.
class LORVALE_EXPORT MessageSource {
public:
    MessageSource(const MessageSource&) = delete;
    MessageSource& operator=(const MessageSource&) = delete;
    virtual ~MessageSource();

    /// New flags, which the message then keeps.
    virtual std::shared_ptr<MessageFlags> flagsForMessage(Message& message) = 0;
    /// What is at hand without reading the message, under names in any spelling.  A source that has to read for
    /// this and cannot calls Message::noteMissing() and answers none.
    virtual CachedHeaders cachedHeadersForMessage(Message& message) = 0;
    /// Whether those are read from the header block, so that who needs more of it reads it once for both.  No,
    /// unless a subclass says so.
    virtual bool readsCachedHeaders() const { return false; }
    /// Whether it has those in memory for as long as it is open, so that a flushed message need not keep them.
    /// No, unless a subclass says so.
    virtual bool keepsCachedHeaders() const { return false; }
    /// The header block as it stands, up to and including the empty line; nullopt when it cannot be had, for
    /// instance because another program has cut the file off.  The message then answers bytesAreMissing().
    virtual std::optional<Data> allHeadersForMessage(Message& message) = 0;
    /// What follows the header block; nullopt as above.
    virtual std::optional<Data> bodyForMessage(Message& message) = 0;
    /// What tells the message from the others of this source: MessageHeaders::messageID() unless a subclass
    /// knows better.
    virtual std::string messageIDForMessage(Message& message);

    /// Where this lies on disk, for what a body lays out beside it; empty for what lies nowhere.
    virtual std::string storePath() const;
    /// Whether nothing may be laid out there.  Yes, unless a subclass says otherwise.
    virtual bool isReadOnly() const { return true; }

    /// The mailbox that this is; null for a source that is none, and for a mailbox that is being destroyed.
    virtual std::shared_ptr<MessageStore> messageStore();

protected:
    MessageSource() = default;
};

}  // namespace lorvale
