#include <algorithm>

#include "lorvale/defaults.h"
#include "lorvale/delivery/mail_delivery.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/subprocess.h"
#include "mail/delivery/DeliverySteps.h"

namespace lorvale {

namespace {

using Arguments = std::vector<std::string>;

/// Classic gives recipients as they stand, which the mailer takes apart.  One that begins like an option is
/// left out: it came from outside, and the mailer would obey it.
Arguments classicArguments(const DeliveryRecipients& to) {
    Arguments arguments = {"-oi", "-odb"};
    for (const auto* list : {&to.shown, &to.hidden}) {
        for (const auto& recipient : *list) {
            if (recipient.starts_with('-')) {
                log("Nothing is sent to %@, which looks like an option.", recipient);
            } else if (!recipient.empty()) {
                arguments.push_back(recipient);
            }
        }
    }
    return arguments;
}

Arguments standardArguments(const DeliveryRecipients& to) {
    Arguments arguments = {"-oi", "-odb", "--"};
    for (const auto* list : {&to.shown, &to.hidden}) {
        for (const auto& recipient : *list) {
            auto address = uncommentedAddress(recipient);
            if (!address.empty()) arguments.push_back(std::move(address));
        }
    }
    return arguments;
}

Data standardText(Message& message) {
    const auto text = OutgoingText::of(message, MailDialect::standard);
    ByteBuffer whole(text.headers.size() + text.body.size());
    whole.append(text.headers);
    whole.append(text.body);
    return whole.data();
}

}  // namespace

const MailDeliveryClass& SendmailDelivery::deliveryClass() {
    static const auto& shared = *new MailDeliveryClass{"SendmailDelivery", deliverMessage};
    return shared;
}

bool SendmailDelivery::deliverMessage(const std::shared_ptr<Message>& message, bool askForReadReceipt,
                                      const std::vector<std::string>& privateRecipients) {
    const auto to = message ? recipientsOf(*message, privateRecipients) : std::nullopt;
    if (!to) return false;
    completeHeaders(*message, askForReadReceipt);
    const auto data = dataOfMessage(*message, "SendmailDelivery");
    if (!sizeIsWanted(data.size())) return false;
    const bool isClassic = mailDialect() == MailDialect::classic;
    const auto arguments = isClassic ? classicArguments(*to) : standardArguments(*to);
    const auto input = isClassic ? data : standardText(*message);
    return runCommand(Defaults::sharedInstance().sendmailMailer(), arguments, &input, nullptr);
}

}  // namespace lorvale
