#pragma once
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/store/mail_account.h"

namespace lorvale {

/// A mailbox on a POP3 server, from which mail is fetched into the local ones.  Its directory keeps the spool
/// of what has been fetched, and the memory of what has been seen; it has no mailboxes of its own.
class LORVALE_EXPORT POPAccount : public MailAccount {
public:
    static std::shared_ptr<POPAccount> accountWithPath(std::string_view path);

    POPAccount();  ///< for accountWithPath()
    ~POPAccount() override;

    std::string className() const override;
    std::string displayName() const override;

    /// Whether a panel shows how a fetch goes; true unless set otherwise.
    bool showProgressPanel() const;
    void setShowProgressPanel(bool show);
    /// Whether the server forgets what has been fetched; false unless set otherwise.
    bool deleteMessagesOnServer() const;
    void setDeleteMessagesOnServer(bool forget);
    /// Whether what was fetched once is left alone; true unless set otherwise.
    bool onlyFetchUnseenMessages() const;
    void setOnlyFetchUnseenMessages(bool onlyUnseen);
};

}  // namespace lorvale
