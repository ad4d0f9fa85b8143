#include "lorvale/body/plain_body.h"
#include "lorvale/delivery/mail_delivery.h"
#include "lorvale/delivery/smtp_delivery.h"
#include "lorvale/message.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

using Texts = std::vector<std::string>;

std::optional<MessageBodyClass> bodyClassForFormat(std::string_view format) {
    Message::initialize();
    if (format == KTMIMEMailFormat) return MessageBody::bodyClasses().classNamed("MimeBody");
    if (format == KTASCIIMailFormat) return PlainBody::bodyClass();
    return std::nullopt;
}

/// Classic writes single values in lower case; those who send through it know nothing else.
Texts singleValue(const std::string& text) {
    return {mailDialect() == MailDialect::classic ? lowercased(text) : text};
}

std::optional<Texts> valuesOf(const PropertyList& value) {
    if (const auto* const text = value.get<std::string>()) return singleValue(*text);
    const auto* const array = value.get<PropertyList::Array>();
    if (array == nullptr) return std::nullopt;
    Texts values;
    for (const auto& each : *array) {
        const auto* const text = each.get<std::string>();
        if (text == nullptr) return std::nullopt;
        values.push_back(*text);
    }
    return values;
}

std::string nameAsWritten(const std::string& key) {
    return mailDialect() == MailDialect::classic ? lowercased(key) : key;
}

const MailDeliveryClass& classForProtocol(std::string_view protocol) {
    if (protocol == KTSendmailDeliveryProtocol) return SendmailDelivery::deliveryClass();
    if (protocol == KTSMTPDeliveryProtocol) return SMTPDelivery::deliveryClass();
    return KTMailDelivery::_defaultDeliveryClass();
}

}  // namespace

const MailDeliveryClass& KTMailDelivery::_defaultDeliveryClass() {
    return SendmailDelivery::deliveryClass();
}

bool KTMailDelivery::deliverMessage(std::string_view message, std::string_view subject, std::string_view to) {
    const auto composed = Message::emptyMessageWithBodyClass(PlainBody::bodyClass());
    composed->headers()->setObject(to, "to");
    composed->headers()->setObject(subject, "subject");
    composed->messageBody()->setDecodedBody(AttributedText(std::string(message)));
    return _defaultDeliveryClass().deliver(composed, false, {});
}

bool KTMailDelivery::deliverMessage(const AttributedText& message, const Headers& headers,
                                    std::string_view format, std::string_view protocol) {
    const auto bodyClass = bodyClassForFormat(format);
    if (!bodyClass) return false;
    const auto composed = Message::emptyMessageWithBodyClass(*bodyClass);
    for (auto header = headers.rbegin(); header != headers.rend(); ++header) {  // the order of old
        const auto& [key, value] = *header;
        auto values = valuesOf(value);
        if (!values || key.find_first_of("\r\n") != std::string::npos) return false;
        composed->headers()->setObject(std::move(*values), nameAsWritten(key));
    }
    composed->messageBody()->setDecodedBody(message);
    return classForProtocol(protocol).deliver(composed, false, {});
}

}  // namespace lorvale
