#include "Outgoing.h"

#include <unistd.h>

#include <chrono>
#include <fstream>
#include <optional>

#include "Commands.h"
#include "ConsoleAgent.h"
#include "Json.h"
#include "Output.h"
#include "Terminal.h"
#include "lorvale/defaults.h"
#include "lorvale/delivery.h"
#include "lorvale/platform.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

using lorvale::SMTPSettings;

constexpr std::uint64_t kUsualTimeout = 60;  // seconds

/// What comes of one letter, told on the terminal as it comes.
class Telling : public lorvale::SMTPDeliveryDelegate {
public:
    Telling() { lorvale::SMTPDelivery::setDelegate(this); }
    ~Telling() override { lorvale::SMTPDelivery::setDelegate(nullptr); }
    Telling(const Telling&) = delete;
    Telling& operator=(const Telling&) = delete;

    struct Refusal {
        std::string recipient, reply;
    };
    void sent(std::size_t bytes, std::size_t of) override {
        if (!_bar) _bar.emplace("Kilobytes sent", of / 1024);
        _bar->advanceTo(bytes / 1024);
    }
    void recipientWasRefused(const std::string& recipient, const std::string& reply) override {
        refusals.push_back({recipient, reply});
        say("mailhost: " + recipient + " gets nothing: " + reply);
    }
    void attemptFailed(const std::string& host, const std::string& reason) override {
        failure = reason;
        say("mailhost: nothing was sent by " + host + ": " + reason);
    }

    std::vector<Refusal> refusals;
    std::string failure;

private:
    std::optional<ProgressBar> _bar;
};

std::string firstLineOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string line;
    if (!std::getline(file, line)) throw Failure("cannot read " + path);
    return std::string(lorvale::trimmed(line, "\r\n"));
}

std::string password(const Arguments& arguments) {
    if (const auto file = arguments.value(kServerPasswordFile)) return firstLineOf(*file);
    const auto typed = lorvale::userAgentOrAbsent().queryUserForPasswordWithMessage(
        "Password of " + *arguments.value(kServerUser) + ":", nullptr);
    if (!typed) throw Failure("there is no password: --password-file names a file with it");
    return *typed;
}

SMTPSettings settingsFor(const Arguments& arguments) {
    using enum SMTPSettings::Security;
    SMTPSettings settings;
    const auto kind = arguments.value(kServerSecurity).value_or("none");
    settings.security = kind == "tls" ? fromStart : kind == "starttls" ? startTLS : none;
    settings.tls.authorities = arguments.value(kServerAuthorities).value_or("");
    settings.timeout = std::chrono::seconds(
        std::min<std::uint64_t>(arguments.value(kServerTimeout).value_or(kUsualTimeout), 86'400));
    if (const auto name = arguments.value(kServerUser)) {
        settings.userName = *name;
        settings.password = password(arguments);
    }
    return settings;
}

bool goesBySmtp(const Arguments& arguments) {
    const auto way = arguments.value(kVia);
    if (way == "sendmail" && arguments.has(kServer)) throw UsageError("--host is for --via smtp");
    if (way || arguments.has(kServer)) return way != "sendmail";
    return lorvale::equalIgnoringAsciiCase(lorvale::Defaults::sharedInstance().deliveryMethod(), "smtp");
}

/// The recommended size is that of another age: here there is a limit only for who has set one.
void liftSizeLimit() {
    lorvale::Defaults::sharedInstance();  // the library's values of last resort come before ours
    lorvale::UserDefaults::standard().registerDefaults(lorvale::PropertyList::Dictionary{{"SendSizeLimit", 0}});
}

bool sendBySmtp(const std::shared_ptr<lorvale::Message>& letter, const std::vector<std::string>& blind,
                const Arguments& arguments) {
    if (const auto host = arguments.value(kServer))
        lorvale::UserDefaults::standard().setArgument("SMTPHost", *host);
    lorvale::SMTPDelivery::setSettings(settingsFor(arguments));
    return lorvale::SMTPDelivery::deliverMessage(letter, false, blind);
}

bool sendByMailer(const std::shared_ptr<lorvale::Message>& letter, const std::vector<std::string>& blind) {
    const auto mailer = lorvale::Defaults::sharedInstance().sendmailMailer();
    if (::access(mailer.c_str(), X_OK) != 0)
        throw Failure("there is no mailer at " + mailer + "; --host names a mail server");
    return lorvale::SendmailDelivery::deliverMessage(letter, false, blind);
}

void tellAsJson(bool isSent, const Telling& telling) {
    std::vector<std::string> refused;
    for (const auto& [recipient, reply] : telling.refusals)
        refused.push_back(JsonObject().add("recipient", recipient).add("reply", reply).text());
    JsonObject object;
    object.add("complete", isSent).addJson("refused", jsonArray(refused));
    if (!telling.failure.empty()) object.add("failure", telling.failure);
    LineOutput().write(object.text());
}

}  // namespace

int sendLetter(const std::shared_ptr<lorvale::Message>& letter, const std::vector<std::string>& blindRecipients,
               const Arguments& arguments) {
    liftSizeLimit();
    Telling telling;
    const bool isSent = goesBySmtp(arguments) ? sendBySmtp(letter, blindRecipients, arguments)
                                              : sendByMailer(letter, blindRecipients);
    if (arguments.has(kJson)) {
        tellAsJson(isSent, telling);
    } else if (!isSent && telling.refusals.empty() && telling.failure.empty()) {
        say("mailhost: the letter was not sent; --verbose tells why");
    }
    return isSent ? 0 : 1;
}

}  // namespace mailhost
