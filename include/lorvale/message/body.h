#pragma once
#include <any>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/message/willingness_registry.h"
#include "lorvale/platform/small_mutex.h"
#include "lorvale/values/attributed_text.h"
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

// Notifications; the object is the body.  The user info of the first and last holds the bytes, a Data, under
// MessageEncodedBodyKey; that of the others the text, an AttributedText, under MessageDecodedBodyKey.
inline constexpr std::string_view MessageBodyWillBeDecodedNotification = "MessageBodyWillBeDecodedNotification";
inline constexpr std::string_view MessageBodyWasDecodedNotification = "MessageBodyWasDecodedNotification";
inline constexpr std::string_view MessageBodyWillBeEncodedNotification = "MessageBodyWillBeEncodedNotification";
inline constexpr std::string_view MessageBodyWasEncodedNotification = "MessageBodyWasEncodedNotification";
inline constexpr std::string_view MessageEncodedBodyKey = "MessageEncodedBodyKey";
inline constexpr std::string_view MessageDecodedBodyKey = "MessageDecodedBodyKey";

/// The body of one message in two forms: the bytes as they stand in the mailbox, and the text for reading and
/// editing.  Each is made from the other when it is asked for; a subclass makes them.  Held by a shared_ptr;
/// belongs to its message, which it does not keep alive.  Any thread may ask and flush: making a form happens
/// without a lock held, and the first one made is everybody's.
class LORVALE_EXPORT MessageBody : public std::enable_shared_from_this<MessageBody> {
public:
    static WillingnessRegistry<MessageBodyClass>& bodyClasses();
    /// Puts a class in charge of an encoding, by its name ("MIME"), in the place of the one before; no matter
    /// whether it is in bodyClasses().
    static void registerMessageClass(MessageBodyClass bodyClass, std::string_view forEncoding);
    static void unregisterMessageClassForEncoding(std::string_view encoding);
    static std::optional<MessageBodyClass> bodyClassForMessageEncoding(std::string_view encoding);
    /// A body of the most willing class, bound to the message; null when none is willing.
    static std::shared_ptr<MessageBody> bodyForMessage(const std::shared_ptr<Message>& message);

    /// The column at which text that is sent is wrapped: the default "LineLength", 76 where that is below 1.
    static int lineLength();

    /// Where attachments are laid out when nobody says otherwise: made on first use, only for the user.
    /// Nullopt, with a log line, when it cannot be made.
    static std::optional<std::string> defaultAttachmentDirectory();
    /// An empty path brings back the first one.
    static void setDefaultAttachmentDirectory(std::string_view path);

    MessageBody() = default;
    MessageBody(const MessageBody&) = delete;
    MessageBody& operator=(const MessageBody&) = delete;
    virtual ~MessageBody();

    std::shared_ptr<Message> message() const;
    /// Only the first message counts: a body does not change hands.
    void setMessage(const std::shared_ptr<Message>& message);

    /// The bytes: those held, else those made of a text that was set, else those of the source, which are then
    /// held.  A text that was itself made of the source's bytes leads back to these.
    /// Nullopt, after log lines, when they cannot be made.
    virtual std::optional<Data> encodedBody();
    /// The text: that held, else one made of the bytes, which then go, since the source has them; null, after
    /// log lines, when it cannot be made.
    std::shared_ptr<const AttributedText> decodedBody();
    /// Each replaces that form and drops the other.
    virtual void setEncodedBody(std::optional<Data> bytes);
    virtual void setDecodedBody(std::optional<AttributedText> text);

    /// Where the attachments of this body are laid out; nullopt until somebody knows.
    std::optional<std::string> attachmentDirectory() const;
    void setAttachmentDirectory(std::optional<std::string> path);

    virtual void flushEncodedBodyCache();
    virtual void flushDecodedBodyCache();
    /// Drops both forms, unless there is no source to give them again.
    virtual void flushCachedData();
    virtual std::size_t cachedDataSize() const;
    /// The name of the class, for people.
    virtual std::string className() const;

protected:
    // A subclass's work: one form of the other.  They may throw, which the asker hears as nullopt or null. Here
    // they throw an InternalInconsistencyException.
    virtual std::optional<Data> encodeBody();
    virtual std::shared_ptr<const AttributedText> decodeBody();

    // What is held, without making it, and one form alone.
    std::optional<Data> _encodedBody() const;
    std::shared_ptr<const AttributedText> _decodedBody() const;
    void _setEncodedBody(std::optional<Data> bytes);
    void _setDecodedBody(std::shared_ptr<const AttributedText> text);

private:
    void post(std::string_view name, std::string_view key, std::any value);
    std::shared_ptr<const AttributedText> textToEncode() const;
    std::optional<Data> encodedForm(const AttributedText& text);
    std::optional<Data> keep(std::optional<Data> bytes, bool areOfSource);

    mutable SmallMutex _mutex;
    std::weak_ptr<Message> _message LORVALE_GUARDED_BY(_mutex);
    std::optional<Data> _encoded LORVALE_GUARDED_BY(_mutex);
    std::shared_ptr<const AttributedText> _decoded LORVALE_GUARDED_BY(_mutex);
    bool _isOfSource LORVALE_GUARDED_BY(_mutex) = false;  // whether what is held was read from the source
    std::optional<std::string> _attachPath LORVALE_GUARDED_BY(_mutex);
};

}  // namespace lorvale
