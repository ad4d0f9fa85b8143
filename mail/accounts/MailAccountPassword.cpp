/// The password of an account: stored, of this session, or asked for.
#include "lorvale/mime.h"
#include "lorvale/platform/localization.h"
#include "lorvale/store/mail_account.h"
#include "lorvale/values/format.h"
#include "mail/accounts/AccountKeys.h"

namespace lorvale {

std::optional<std::string> MailAccount::password(bool mayAsk) {
    if (const auto stored = textForKey(kPasswordKey)) return decodeBase64(Data::copyOf(*stored)).toString();
    if (const auto entered = textForKey(kSessionPasswordKey)) return entered;
    return mayAsk ? promptUserForPassword() : std::nullopt;
}

void MailAccount::setPassword(std::optional<std::string_view> password) {
    if (!password || password->empty()) return setText(std::nullopt, kPasswordKey);
    setText(encodeBase64(Data::copyOf(*password)).view(), kPasswordKey);
}

std::optional<std::string> MailAccount::promptUserForPassword() {
    const auto question =
        formatText(LVLocalizedString("Please enter the password for user \"%@\" on host \"%@\"",
                                     "The question for a password"),
                   username().value_or(""), hostname().value_or(""));
    bool remember = false;
    const auto answer = userAgentOrAbsent().queryUserForPasswordWithMessage(question, &remember);
    if (!answer) {
        forgetRememberedPassword();
        return std::nullopt;
    }
    setText(*answer, kSessionPasswordKey);
    if (remember) {
        setPassword(*answer);
        saveAccountInfo();
    }
    return answer;
}

void MailAccount::forgetRememberedPassword() {
    setText(std::nullopt, kSessionPasswordKey);
}

}  // namespace lorvale
