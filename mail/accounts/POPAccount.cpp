#include "lorvale/account/pop_account.h"

#include "lorvale/platform/localization.h"
#include "lorvale/values/format.h"
#include "mail/accounts/AccountKeys.h"

namespace lorvale {

POPAccount::POPAccount() = default;
POPAccount::~POPAccount() {
    closeFetcher();
}

std::shared_ptr<POPAccount> POPAccount::accountWithPath(std::string_view path) {
    auto account = openAccount<POPAccount>(path);
    account->openFetcher();
    account->registerForTimedFetch();
    return account;
}

void POPAccount::openFetcher() {
    // It knows the account without a share of it: the account owns it, and takes itself away before it goes.
    const std::shared_ptr<MailAccount> borrowed(std::shared_ptr<void>(), this);
    _fetcher = POP3FetchStore::initWithPath(path(), /*create=*/true, /*readOnly=*/false, borrowed);
}

void POPAccount::closeFetcher() {
    if (!_fetcher) return;
    _fetcher->close();
    _fetcher->setAccount(nullptr);
    _fetcher = nullptr;
}

void POPAccount::setPath(std::string_view path) {
    closeFetcher();
    MailAccount::setPath(path);
    openFetcher();
}

bool POPAccount::doFetchNow(bool automatically) {
    if (automatically && !shouldAutoFetch()) return false;
    return _fetcher && _fetcher->performFetch();
}

std::uint16_t POPAccount::fetchPort() const {
    return port().value_or(0);
}

POP3Security POPAccount::fetchSecurity() const {
    switch (connectionSecurity()) {
        case ConnectionSecurity::none:
            return POP3Security::none;
        case ConnectionSecurity::upgraded:
            return POP3Security::startTLS;
        case ConnectionSecurity::fromStart:
            break;
    }
    return POP3Security::tls;
}

TLSSettings POPAccount::tlsSettings() const {
    return {.authorities = certificateAuthorities().value_or("")};
}

std::string POPAccount::className() const {
    return "POPAccount";
}

std::string POPAccount::displayName() const {
    if (const auto host = hostname())
        return displayNameOr(
            formatText(LVLocalizedString("POP: %@", "The name of an account on a host"), *host));
    return displayNameOr(LVLocalizedString("POP Account", "The name of an account without a host"));
}

bool POPAccount::showProgressPanel() const {
    return !boolForKey(kHideProgressPanelKey);
}

void POPAccount::setShowProgressPanel(bool show) {
    setBool(!show, kHideProgressPanelKey);
}

bool POPAccount::deleteMessagesOnServer() const {
    return boolForKey(kDeleteOnServerKey);
}

void POPAccount::setDeleteMessagesOnServer(bool forget) {
    setBool(forget, kDeleteOnServerKey);
}

bool POPAccount::onlyFetchUnseenMessages() const {
    return !boolForKey(kFetchAllKey);
}

void POPAccount::setOnlyFetchUnseenMessages(bool onlyUnseen) {
    setBool(!onlyUnseen, kFetchAllKey);
}

}  // namespace lorvale
