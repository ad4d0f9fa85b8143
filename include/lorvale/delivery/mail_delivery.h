#pragma once
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/attributed_text.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

class Message;

/// A way to send a finished message, as the registry knows it.
struct MailDeliveryClass {
    using Deliver = std::function<bool(const std::shared_ptr<Message>& message, bool askForReadReceipt,
                                       const std::vector<std::string>& privateRecipients)>;
    std::string name;  ///< the one thing that tells it from the others
    Deliver deliver;
};

/// Sends a message by the class that was registered last.  The recipients are those of the message's "To:" and
/// "Cc:", and the private ones, of whom the message does not tell.  A read receipt is asked for by a mark in
/// "X-Mailer:", which every delivery sets.  Any thread, as far as the delivery asks nobody.
class LORVALE_EXPORT MailDelivery {
public:
    /// A name that is there already changes nothing.
    static void registerDeliveryClass(MailDeliveryClass deliveryClass);
    static void unregisterDeliveryClass(std::string_view name);
    /// False where it was not sent to everybody, and without a class.
    static bool deliverMessage(const std::shared_ptr<Message>& message, bool askForReadReceipt = false,
                               const std::vector<std::string>& privateRecipients = {});
};

/// Gives a message to the mailer of this machine, Defaults::sendmailMailer(), and does not wait for its
/// opinion: true once it was started.  False for a message without recipients, and for one whose size the user
/// refuses. Throws GenericException for a message without bytes.  Classic hands over the bytes of the message,
/// with an envelope line where it has one, and recipients as they stand; standard no envelope line, no "Bcc:",
/// pure addresses, those of "Bcc:" too, and nothing that could be taken for an option.
class LORVALE_EXPORT SendmailDelivery {
public:
    static const MailDeliveryClass& deliveryClass();
    static bool deliverMessage(const std::shared_ptr<Message>& message, bool askForReadReceipt = false,
                               const std::vector<std::string>& privateRecipients = {});
};

// The formats and protocols of KTMailDelivery.
inline constexpr std::string_view KTMIMEMailFormat = "KTMIMEMailFormat";
inline constexpr std::string_view KTASCIIMailFormat = "KTASCIIMailFormat";
inline constexpr std::string_view KTSMTPDeliveryProtocol = "KTSMTPDeliveryProtocol";
inline constexpr std::string_view KTSendmailDeliveryProtocol = "KTSendmailDeliveryProtocol";

/// Composes and sends in one call.
class LORVALE_EXPORT KTMailDelivery {
public:
    /// A text or an array of texts under each name.
    using Headers = std::map<std::string, PropertyList>;

    /// Plain text, by the default class.
    static bool deliverMessage(std::string_view message, std::string_view subject, std::string_view to);
    /// False for another format, and for a header value that is neither text nor an array of
    /// texts, and for a name with a line end in it; nothing is
    /// sent then.  Another protocol means the default class.  Classic writes names, and values that are texts,
    /// in lower case; standard as they are.
    static bool deliverMessage(const AttributedText& message, const Headers& headers, std::string_view format,
                               std::string_view protocol);
    /// SendmailDelivery.
    static const MailDeliveryClass& _defaultDeliveryClass();
};

}  // namespace lorvale
