#include "lorvale/delivery/smtp_delivery.h"

#include <algorithm>
#include <utility>

#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/user_agent.h"
#include "mail/delivery/DeliverySteps.h"
#include "mail/model/ExceptionReason.h"

namespace lorvale {

namespace {

using Addresses = std::vector<std::string>;

/// What the process has chosen.
class Choices {
public:
    static Choices& shared() {
        static Choices& instance = *new Choices;  // never destroyed: late threads may ask
        return instance;
    }
    void set(const SMTPSettings& settings) {
        const MutexLock lock(_mutex);
        _settings = settings;
    }
    void set(SMTPDeliveryDelegate* delegate) {
        const MutexLock lock(_mutex);
        _delegate = delegate;
    }
    SMTPSettings settings() {
        const MutexLock lock(_mutex);
        return _settings;
    }
    /// One that hears nothing where none is set.
    SMTPDeliveryDelegate& delegate() {
        static SMTPDeliveryDelegate& nobody = *new SMTPDeliveryDelegate;
        const MutexLock lock(_mutex);
        return _delegate == nullptr ? nobody : *_delegate;
    }

private:
    Mutex _mutex;
    SMTPSettings _settings LORVALE_GUARDED_BY(_mutex);
    SMTPDeliveryDelegate* _delegate LORVALE_GUARDED_BY(_mutex) = nullptr;
};

void reportError(std::string_view text) {
    if (Defaults::sharedInstance().canUseWindowKit()) {
        userAgentOrAbsent().alertUserWithMessage(text, LVLocalizedString("Mail Delivery Error"));
    } else {
        log("%@", withAdvice(text));
    }
}

/// The pure addresses of those that are not empty.
Addresses pureAddresses(const Addresses& entries) {
    Addresses pure;
    for (const auto& entry : entries) {
        if (!entry.empty()) pure.push_back(uncommentedAddress(entry));
    }
    return pure;
}

Addresses withAliasesExpanded(const Addresses& recipients) {
    const auto manager = MailAddressManager::addressManager();
    auto expanded = manager ? manager->expandPrivateAliases(recipients) : std::nullopt;
    return expanded ? std::move(*expanded) : recipients;
}

/// One message on its way.
class Sending {
public:
    Sending(Message& message, Addresses recipients, Addresses privateRecipients)
        : _message(message),
          _recipients(std::move(recipients)),
          _privateRecipients(std::move(privateRecipients)) {}

    /// Throws what ends the attempt.
    void attempt(SMTPConnection& connection, const std::string& host) {
        _refused.clear();
        _accepted = 0;
        _isDelivered = false;
        connection.connectToHost(host);
        if (mailDialect() == MailDialect::classic) {
            sendClassic(connection);
        } else {
            sendStandard(connection);
        }
    }
    /// What came of an attempt that nothing has ended.
    bool report(const std::string& host) const;

private:
    void sendClassic(SMTPConnection& connection);
    void sendStandard(SMTPConnection& connection);
    void sendText(SMTPConnection& connection, const OutgoingText& text);
    void refuse(const std::string& recipient, const std::string& reply);
    std::string sender() const;

    Message& _message;
    Addresses _recipients;
    const Addresses _privateRecipients;
    Addresses _refused;
    std::size_t _accepted = 0;
    bool _isDelivered = false;
    SMTPDeliveryDelegate& _delegate = Choices::shared().delegate();
};

void Sending::sendClassic(SMTPConnection& connection) {
    connection.mailFrom(uncommentedAddress(_message.headers()->sender()));
    _recipients = withAliasesExpanded(_recipients);
    for (const auto* list : {&std::as_const(_recipients), &_privateRecipients}) {
        for (const auto& address : pureAddresses(*list)) {
            try {
                connection.rcptTo(address);
                ++_accepted;
            } catch (const NamedException& exception) {
                refuse(address, exception.reason());
            }
        }
    }
    if (_accepted > 0) {
        connection.startData();
        sendText(connection, OutgoingText::of(_message, MailDialect::classic));
        connection.endData();
    }
    // A failure here is one of the delivery, so that the question for another host comes: a server that does
    // not say good-bye has never been trusted with the message.
    connection.quit();
    _isDelivered = _accepted > 0;
}

void Sending::sendStandard(SMTPConnection& connection) {
    const auto text = OutgoingText::of(_message, MailDialect::standard);
    SMTPEnvelope envelope{sender(), pureAddresses(withAliasesExpanded(_recipients)), text.size(),
                          text.has8Bit()};
    std::ranges::move(pureAddresses(_privateRecipients), std::back_inserter(envelope.recipients));
    if (!envelope.recipients.empty()) {
        for (const auto& [recipient, reply] : connection.startMail(envelope)) refuse(recipient, reply);
        _accepted = envelope.recipients.size() - _refused.size();
        if (_accepted > 0) {
            sendText(connection, text);
            connection.endData();
            _isDelivered = true;
        }
    }
    try {
        connection.quit();
    } catch (const NamedException& exception) {  // many servers just go
        debugLog("The SMTP server did not say good-bye: %@", exception.reason());
    }
}

void Sending::sendText(SMTPConnection& connection, const OutgoingText& text) {
    const std::size_t whole = text.headers.size() + text.body.size();
    connection.sendData(text.headers.view(), [&](std::size_t bytes) { _delegate.sent(bytes, whole); });
    connection.sendData(text.body.view(),
                        [&](std::size_t bytes) { _delegate.sent(text.headers.size() + bytes, whole); });
    _delegate.sent(whole, whole);
}

void Sending::refuse(const std::string& recipient, const std::string& reply) {
    debugLog("SMTP error for recipient %@: %@", recipient, reply);
    _refused.push_back(recipient);
    _delegate.recipientWasRefused(recipient, reply);
}

std::string Sending::sender() const {
    const auto cached = _message.headers()->sender();
    if (!cached.empty()) return uncommentedAddress(cached);
    const auto headers = _message.headers()->allHeaders();
    const auto found = headers->find("from");
    const bool isThere = found != headers->end() && !found->second.empty();
    return isThere ? uncommentedAddress(found->second.front()) : std::string();
}

bool Sending::report(const std::string& host) const {
    if (_refused.size() == 1) {
        reportError(formatText(LVLocalizedString("SMTP host %@ did not recognize recipient %@\n"), host,
                               _refused.front()));
    } else if (!_refused.empty()) {
        std::string all;
        for (const auto& recipient : _refused) all += (all.empty() ? "" : ", ") + recipient;
        reportError(formatText(LVLocalizedString("SMTP host %@ did not recognize the following recipients: %@"),
                               host, all));
    } else if (_accepted == 0) {
        reportError(LVLocalizedString("No recipients were specified"));
    } else {
        return _isDelivered;
    }
    return false;
}

}  // namespace

SMTPDeliveryDelegate::~SMTPDeliveryDelegate() = default;
void SMTPDeliveryDelegate::sent(std::size_t, std::size_t) {}
void SMTPDeliveryDelegate::recipientWasRefused(const std::string&, const std::string&) {}
void SMTPDeliveryDelegate::attemptFailed(const std::string&, const std::string&) {}

void SMTPDelivery::setSettings(const SMTPSettings& settings) {
    Choices::shared().set(settings);
}

SMTPSettings SMTPDelivery::settings() {
    return Choices::shared().settings();
}

void SMTPDelivery::setDelegate(SMTPDeliveryDelegate* delegate) {
    Choices::shared().set(delegate);
}

const MailDeliveryClass& SMTPDelivery::deliveryClass() {
    static const auto& shared = *new MailDeliveryClass{"SMTPDelivery", deliverMessage};
    return shared;
}

bool SMTPDelivery::deliverMessage(const std::shared_ptr<Message>& message, bool askForReadReceipt,
                                  const std::vector<std::string>& privateRecipients) {
    const auto to = message ? recipientsOf(*message, privateRecipients) : std::nullopt;
    if (!to) return false;
    std::optional<std::string> host = Defaults::sharedInstance().SMTPHost();
    if (host->empty()) {
        userAgentOrAbsent().alertUserWithMessage(
            LVLocalizedString(
                "You have not specified an SMTP host in the Preferences panel.  You must specify a "
                "host before you can send mail."),
            LVLocalizedString("Alert"));
        return false;
    }
    completeHeaders(*message, askForReadReceipt);
    if (!sizeIsWanted(dataOfMessage(*message, "SMTPDelivery").size())) return false;
    for (Sending sending(*message, to->shown, to->hidden); host;) {
        const auto connection = SMTPConnection::init(settings());
        if (!connection) {
            log("Could not create an SMTP connection object.");
            return false;
        }
        try {
            sending.attempt(*connection, *host);
            return sending.report(*host);
        } catch (const std::exception& exception) {
            const auto reason = reasonOf(exception);
            Choices::shared().delegate().attemptFailed(*host, reason);
            host = SMTPPanel::getNewHostWithMessage(
                formatText(
                    LVLocalizedString("The following error occurred during delivery via SMTP host %@:\n%@\n."),
                    *host, reason),
                *host);
        }
    }
    return false;
}

}  // namespace lorvale
