#pragma once
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/mime/dialect.h"
#include "lorvale/values/data.h"

/// The steps that all deliveries have in common.

namespace lorvale {

class Message;

/// Says in "X-Mailer:" who has sent it, and whether a receipt is asked for.  Standard also puts in "From:",
/// "Date:" and "Message-ID:" where they are missing, which no mail may do without (RFC 5322, section 3.6).
void completeHeaders(Message& message, bool askForReadReceipt, MailDialect dialect = mailDialect());

/// Headers and body.  Throws GenericException in the name of a delivery class where there are none.
Data dataOfMessage(Message& message, std::string_view deliveryClass);

/// Whether a message of so many bytes is to be sent: the user is asked beyond the limit of the defaults.
bool sizeIsWanted(std::size_t bytes);

/// Header block and body as they are sent.
struct OutgoingText {
    Data headers, body;

    /// Without the envelope line and, in the standard dialect, without "Bcc:".
    static OutgoingText of(Message& message, MailDialect dialect);
    /// With each line end as two bytes.
    std::size_t size() const;
    bool has8Bit() const;
};

/// Whom a message is for, as written.
struct DeliveryRecipients {
    std::vector<std::string> shown;   ///< by "To:" and "Cc:"
    std::vector<std::string> hidden;  ///< the private ones, standard also those of "Bcc:"
};
/// Nullopt for a message that is for nobody; classic counts those that are shown.
std::optional<DeliveryRecipients> recipientsOf(Message& message,
                                               const std::vector<std::string>& privateRecipients,
                                               MailDialect dialect = mailDialect());

/// "text\nTo specify a different SMTP host, ...", for where nobody can be asked.
std::string withAdvice(std::string_view text);

}  // namespace lorvale
