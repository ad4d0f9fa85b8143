#pragma once
/// Messages: what one letter is made of, and the choice of classes that work on it.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "lorvale/export.h"
#include "lorvale/message/address_manager.h"
#include "lorvale/message/addresses.h"
#include "lorvale/message/body.h"
#include "lorvale/message/dates.h"
#include "lorvale/message/flags.h"
#include "lorvale/message/headers.h"
#include "lorvale/message/list.h"
#include "lorvale/message/mailboxes.h"
#include "lorvale/message/source.h"
#include "lorvale/message/subjects.h"
#include "lorvale/message/willingness_registry.h"
#include "lorvale/platform/small_mutex.h"
#include "lorvale/values/data.h"

namespace lorvale {

class MessageStore;
class UserAgent;

/// The two halves of a message's bytes.
enum class MessagePart : std::uint8_t { headers = 1, body = 2 };

/// One message: a small handle that knows its source and nothing else until somebody asks.  Headers, flags and
/// body are made on first use and kept.  A store derives its own class from it.  Always held by a shared_ptr;
/// what would be a copy is one more share.
///
/// Any thread may ask for the parts, flush them and set them: two threads that ask at once get the same part.
/// A mailbox holds one of these for each message, so the lock is one byte, held for a few instructions and
/// never while something is read.
class LORVALE_EXPORT Message : public std::enable_shared_from_this<Message> {
public:
    /// A new message of class M in a store or another source, made with M(arguments...).  The message does not
    /// keep the store alive.
    template <class M = Message, class... Arguments>
    static std::shared_ptr<M> messageInStore(const std::shared_ptr<MessageSource>& store,
                                             Arguments&&... arguments) {
        initialize();
        auto message = std::make_shared<M>(std::forward<Arguments>(arguments)...);
        message->setMessageStore(store);
        return message;
    }
    /// A message whose bytes are these: headers, an empty line, the body.  It carries its own small store with
    /// it.  Null only when the library was built without that store.
    static std::shared_ptr<Message> messageWithData(const Data& data);
    /// A message without a store: no headers yet, and an empty body of the class.
    static std::shared_ptr<Message> emptyMessageWithBodyClass(const MessageBodyClass& bodyClass);

    /// The process-wide host object; see UserAgent.  Not owned, may be null.
    static void setUserAgent(UserAgent* agent);
    static UserAgent* userAgent();
    static std::string_view frameworkVersion();
    static std::string verboseVersion();

    /// Lets the known store and body classes register themselves.  Done once, at the first use of messages;
    /// whoever chooses among these classes without a message at hand calls it first.  Any thread.
    static void initialize();

    // Where an attachment is laid out: a new directory, named after the subject of its message.  Nullopt, with
    // a log line, when it cannot be made.  Without a directory the default one of MessageBody is taken.
    static std::optional<std::string> makeUniqueAttachmentNamed(std::optional<std::string_view> subject,
                                                                std::optional<std::string_view> inDirectory);
    static std::optional<std::string> makeUniqueAttachmentNamed(std::optional<std::string_view> subject,
                                                                std::string_view withExtension,
                                                                std::optional<std::string_view> inDirectory);
    /// "directory/name" + type, where the name is up to 20 harmless characters made of the subject.
    static std::string _filenameFromSubject(std::optional<std::string_view> subject,
                                            std::optional<std::string_view> inDirectory,
                                            std::string_view ofType);

    Message();
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
    virtual ~Message();

    /// Null when the message has no source, or its source is gone.
    std::shared_ptr<MessageSource> messageSource() const;
    /// The source if it is a mailbox; null otherwise.
    std::shared_ptr<MessageStore> messageStore() const;
    /// A mailbox or another source; null takes the message out of the one it had.
    void setMessageStore(const std::shared_ptr<MessageSource>& store);

    /// What tells this message from the others of its store: the source's answer, or for a message without one
    /// MessageHeaders::messageID().
    virtual std::string messageID();
    /// Whether header block or body could not be had when they were last asked for: the store is closed, or
    /// another program has cut off or changed the mailbox meanwhile.  What headers and body then tell is empty.
    /// Any thread.
    bool bytesAreMissing() const { return _missing.load() != 0; }
    /// For sources, headers and bodies: the outcome of reading a part.
    void noteMissing(MessagePart part, bool missing = true);

    // Each is made on first use; the setters take null to have it made anew.  There is no body where no class
    // of bodies is willing: null.
    std::shared_ptr<MessageHeaders> headers();
    void setHeaders(std::shared_ptr<MessageHeaders> headers);
    std::shared_ptr<MessageFlags> messageFlags();
    void setMessageFlags(std::shared_ptr<MessageFlags> flags);
    /// What messageFlags() would answer, without keeping it, for a walk over a whole mailbox.
    std::shared_ptr<MessageFlags> currentFlags();
    std::shared_ptr<MessageBody> messageBody();
    void setMessageBody(std::shared_ptr<MessageBody> body);

    /// Headers and body as one run of bytes; nullopt when the headers cannot be had.
    std::optional<Data> messageData();
    /// The bytes of the body: those of messageBody(), or where there is none those of the source.
    std::optional<Data> encodedBody();
    /// In bytes; 0 when nobody knows.
    virtual std::uint32_t messageSize() const;
    virtual std::optional<std::string> messageTypeImageName() const;

    /// For the message cache: drops what can be read again, and says roughly how much that is.
    void flushCachedData();
    std::size_t cachedDataSize() const;
    /// For logs.
    virtual std::string description();

private:
    friend class MessageList;
    static constexpr std::uint32_t kNoHint = 0xFFFF'FFFF;
    std::size_t listHint() const { return _listHint.load(std::memory_order_relaxed); }
    void setListHint(std::size_t index) const {
        _listHint.store(static_cast<std::uint32_t>(index), std::memory_order_relaxed);
    }

    /// Those that are loaded.
    struct Parts {
        std::shared_ptr<MessageHeaders> headers;
        std::shared_ptr<MessageBody> body;
    };
    Parts parts() const;
    void dropHeaders();
    /// Of headers that were dropped; empty otherwise.
    CachedHeaders keptHeaders() const;
    friend class MessageBody;
    std::optional<Data> readBody();

    std::weak_ptr<MessageSource> _source LORVALE_GUARDED_BY(_mutex);
    /// What few messages have at a time, in this order, so that they go in the order headers, body, flags.
    struct Loaded {
        std::shared_ptr<MessageFlags> flags;
        std::shared_ptr<MessageBody> body;
    };
    template <class Part>
    std::shared_ptr<Part> loaded(std::shared_ptr<Part> Loaded::*part) const;
    template <class Part>
    std::shared_ptr<Part> loadOnce(std::shared_ptr<Part> Loaded::*part, std::shared_ptr<Part> made);
    template <class Part>
    void replace(std::shared_ptr<Part> Loaded::*part, std::shared_ptr<Part> with);

    std::unique_ptr<Loaded> _loaded LORVALE_GUARDED_BY(_mutex);  // null: nothing
    // Of flushed headers that nobody shares their cached ones alone are left, which take a third of the room.
    std::variant<std::shared_ptr<MessageHeaders>, CachedHeaders> _headers LORVALE_GUARDED_BY(_mutex);
    mutable std::atomic<std::uint32_t> _listHint = kNoHint;  // where a MessageList found it last
    std::atomic<std::uint8_t> _missing = 0;                  // one bit a MessagePart
    mutable SmallMutex _mutex;
};

}  // namespace lorvale
