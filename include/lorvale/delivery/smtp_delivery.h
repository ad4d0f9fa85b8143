#pragma once
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/delivery/mail_delivery.h"
#include "lorvale/delivery/smtp_connection.h"
#include "lorvale/export.h"

namespace lorvale {

class Message;

/// What a host likes to hear of a delivery, on the thread that delivers.
class LORVALE_EXPORT SMTPDeliveryDelegate {
public:
    virtual ~SMTPDeliveryDelegate();
    /// How much of the message has been sent, in bytes; from time to time, and at the end.
    virtual void sent(std::size_t bytes, std::size_t of);
    /// The server takes no mail for somebody; the others get it.
    virtual void recipientWasRefused(const std::string& recipient, const std::string& reply);
    /// The attempt is over; another host may be asked for.
    virtual void attemptFailed(const std::string& host, const std::string& reason);
};

/// Sends a message to the mail server, Defaults::SMTPHost(), with the dialect of the process.  When that fails,
/// SMTPPanel asks for another host and all begins anew, as often as it gets one.
///
/// Classic takes a failure of one recipient for a refusal, whatever it is, and a failure after the server has
/// taken the message for a failure of all.  Standard knows them apart; takes the recipients of "Bcc:" for
/// private ones and leaves that header out; and sends the sender of "From:" where nothing has cached one.
class LORVALE_EXPORT SMTPDelivery {
public:
    /// For all deliveries that begin from now on.  Any thread.
    static void setSettings(const SMTPSettings& settings);
    static SMTPSettings settings();
    /// Borrowed until another one is set, or null, and no delivery is under way.  Any thread.
    static void setDelegate(SMTPDeliveryDelegate* delegate);

    static const MailDeliveryClass& deliveryClass();
    /// False without recipients or a host, when the user refuses the size or another host, and when somebody
    /// was refused, although the others have got the message.  Throws GenericException for a message without
    /// bytes.
    static bool deliverMessage(const std::shared_ptr<Message>& message, bool askForReadReceipt = false,
                               const std::vector<std::string>& privateRecipients = {});
};

/// The question for another mail server, one in the process.
class LORVALE_EXPORT SMTPPanel {
public:
    static SMTPPanel& defaultPanel();
    /// The host to try; nullopt to give up.  Asked of the user interface in the main thread; without one
    /// (Defaults) it is logged, and nullopt.  No old host means the one of the defaults.
    static std::optional<std::string> getNewHostWithMessage(std::string_view message,
                                                            std::optional<std::string> oldHost);
};

}  // namespace lorvale
