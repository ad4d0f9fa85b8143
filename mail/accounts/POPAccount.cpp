#include "lorvale/account/pop_account.h"

#include "lorvale/platform/localization.h"
#include "lorvale/values/format.h"
#include "mail/accounts/AccountKeys.h"

namespace lorvale {

POPAccount::POPAccount() = default;
POPAccount::~POPAccount() = default;

std::shared_ptr<POPAccount> POPAccount::accountWithPath(std::string_view path) {
    auto account = openAccount<POPAccount>(path);
    account->registerForTimedFetch();
    return account;
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
