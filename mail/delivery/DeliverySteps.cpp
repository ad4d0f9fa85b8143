#include "mail/delivery/DeliverySteps.h"

#include <algorithm>

#include "lorvale/body/letters.h"
#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

using Texts = std::vector<std::string>;

constexpr std::string_view kBlindKey = "bcc";

}  // namespace

void completeHeaders(Message& message, bool askForReadReceipt, MailDialect dialect) {
    const auto headers = message.headers();
    headers->setObject(formatText("%@ Corvane (2.%@%@)", "by Orrin", Message::frameworkVersion(),
                                  askForReadReceipt ? ".RR" : ""),
                       "X-Mailer");
    if (dialect == MailDialect::classic) return;
    if (!headers->allHeaders()->contains("from")) headers->setObject(loginName() + '@' + hostName(), "From");
    completeLetter(message);
}

Data dataOfMessage(Message& message, std::string_view deliveryClass) {
    const auto data = message.messageData();
    if (!data) throw GenericException(formatText("%@ deliverMessage: messageData returned nil", deliveryClass));
    return *data;
}

bool sizeIsWanted(std::size_t bytes) {
    auto& defaults = Defaults::sharedInstance();
    const std::int32_t limit = defaults.sendSizeLimit();
    if (limit <= 0 || bytes <= static_cast<std::size_t>(limit) * 1024) return true;
    const auto question = LVLocalizedString(
        "Your message is larger than the recommended maximum size.  It may be rejected by the network software "
        "if you try to send it anyway.",
        "Question before a large message is sent");
    if (!defaults.canUseWindowKit()) {
        log("%@", question);
        return false;
    }
    return userAgentOrAbsent().queryUserForYesNoWithMessage(question, LVLocalizedString("Alert"),
                                                            LVLocalizedString("Send it anyway"),
                                                            LVLocalizedString("Don't send it"));
}

OutgoingText OutgoingText::of(Message& message, MailDialect dialect) {
    OutgoingText text;
    text.body = message.encodedBody().value_or(Data());
    const auto headers = message.headers();
    if (dialect == MailDialect::standard && headers->objectsForKey(kBlindKey)) {
        MessageHeaders shown(*headers);
        shown.setObject(Texts(), kBlindKey);  // several values cannot be removed
        shown.removeObjectForKey(kBlindKey);
        text.headers = shown.encodedHeadersForDelivery().value_or(Data());
        return text;
    }
    text.headers = headers->encodedHeadersForDelivery().value_or(Data());
    return text;
}

std::size_t OutgoingText::size() const {
    const auto bareNewlines = [](std::string_view text) {
        std::size_t count = 0;
        for (auto at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1))
            count += at == 0 || text[at - 1] != '\r';
        return count;
    };
    return headers.size() + bareNewlines(headers.view()) + body.size() + bareNewlines(body.view());
}

bool OutgoingText::has8Bit() const {
    return !isAscii(headers.view()) || !isAscii(body.view());
}

std::optional<DeliveryRecipients> recipientsOf(Message& message,
                                               const std::vector<std::string>& privateRecipients,
                                               MailDialect dialect) {
    DeliveryRecipients all{message.headers()->recipients(), privateRecipients};
    if (dialect == MailDialect::standard) {
        for (const auto& value : message.headers()->objectsForKey(kBlindKey).value_or(Texts())) {
            auto entries = addressList(value).value_or(Texts());
            std::ranges::move(entries, std::back_inserter(all.hidden));
        }
    }
    const bool isForNobody = all.shown.empty() && (dialect == MailDialect::classic || all.hidden.empty());
    return isForNobody ? std::nullopt : std::optional(std::move(all));
}

std::string withAdvice(std::string_view text) {
    return formatText(
        "%@\nTo specify a different SMTP host, use the command\n\tdefaults write %@ %@ <hostname>", text,
        processName(), "SMTPHost");
}

}  // namespace lorvale
