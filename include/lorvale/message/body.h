#pragma once
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lorvale/export.h"
#include "lorvale/message/willingness_registry.h"
#include "lorvale/values/data.h"

namespace lorvale {

class Message;
class MessageBody;
class MessageHeaders;

/// A class of bodies, as the registry knows it.
struct MessageBodyClass {
    std::string name;
    /// How willing it is to decode the body of a message with these headers; 0 means no.
    std::function<float(MessageHeaders&)> willingness;
    std::function<std::shared_ptr<MessageBody>()> make;
};

/// The body of one message as bytes.  Without any registered class this one serves, as the raw bytes.  Not
/// locked; belongs to its message, which it does not keep alive.
class LORVALE_EXPORT MessageBody {
public:
    static WillingnessRegistry<MessageBodyClass>& bodyClasses();
    /// A body of the most willing class, bound to the message.
    static std::shared_ptr<MessageBody> bodyForMessage(const std::shared_ptr<Message>& message);

    /// Where attachments are laid out when nobody says otherwise: made on first use, only for the user.
    /// Nullopt, with a log line, when it cannot be made.
    static std::optional<std::string> defaultAttachmentDirectory();
    /// An empty path brings back the first one.
    static void setDefaultAttachmentDirectory(std::string_view path);

    MessageBody() = default;
    MessageBody(const MessageBody&) = delete;
    MessageBody& operator=(const MessageBody&) = delete;
    virtual ~MessageBody();

    std::shared_ptr<Message> message() const { return _message.lock(); }
    /// Only the first message counts: a body does not change hands.
    void setMessage(const std::shared_ptr<Message>& message);

    /// The bytes as they stand in the mailbox: those held, else those of the store, which are then held.
    std::optional<Data> encodedBody();
    void setEncodedBody(std::optional<Data> bytes);

    /// Drops the bytes, unless there is no store to give them again.
    virtual void flushCachedData();
    virtual std::size_t cachedDataSize() const;
    /// The name of the class, for people.
    virtual std::string className() const;

private:
    std::weak_ptr<Message> _message;
    std::optional<Data> _encoded;
};

}  // namespace lorvale
