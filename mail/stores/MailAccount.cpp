#include "lorvale/store/mail_account.h"

#include <utility>

#include "lorvale/platform/localization.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/format.h"
#include "mail/stores/RegisteredMaker.h"

namespace lorvale {

void MailAccount::registerDefaultAccount(Maker make) {
    RegisteredMaker<MailAccount>::set(std::move(make));
}

std::shared_ptr<MailAccount> MailAccount::defaultAccount() {
    return RegisteredMaker<MailAccount>::make();
}

MailAccount::~MailAccount() = default;

std::string MailAccount::relativePathForStore(const MessageStore& store) const {
    const auto whole = standardizePath(store.storePath());
    const auto directory = path() + "/";
    return whole.starts_with(directory) ? whole.substr(directory.size()) : whole;
}

std::optional<std::string> MailAccount::hostname() const {
    return std::nullopt;
}

std::optional<std::string> MailAccount::username() const {
    return std::nullopt;
}

std::optional<std::string> MailAccount::password(bool mayAsk) {
    return mayAsk ? promptUserForPassword() : std::nullopt;
}

std::optional<std::string> MailAccount::promptUserForPassword() {
    return std::nullopt;
}

void MailAccount::forgetRememberedPassword() {}

bool MailAccount::shouldAutoFetch() const {
    return true;
}

std::string MailAccount::errorStringWithMessage(std::string_view message, std::string_view mailbox) const {
    const auto orNone = [](std::string text) {
        return text.empty() ? LVLocalizedString("Not specified", "No name of an account or mailbox") : text;
    };
    return formatText(LVLocalizedString("Account name: %@\nMailbox name: %@\n\n%@", "An error of an account"),
                      orNone(displayName()), orNone(std::string(mailbox)), message);
}

}  // namespace lorvale
