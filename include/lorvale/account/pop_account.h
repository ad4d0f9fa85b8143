#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/fetch/pop3_fetch_store.h"
#include "lorvale/store/mail_account.h"

namespace lorvale {

/// A mailbox on a POP3 server, from which mail is fetched into the local ones.  Its directory keeps the spool
/// of what has been fetched, and the memory of what has been seen; it has no mailboxes of its own.
class LORVALE_EXPORT POPAccount : public MailAccount, public POP3FetchOptions {
public:
    static std::shared_ptr<POPAccount> accountWithPath(std::string_view path);

    POPAccount();  ///< for accountWithPath()
    ~POPAccount() override;

    std::string className() const override;
    std::string displayName() const override;

    /// Whether a panel shows how a fetch goes; true unless set otherwise.
    bool showProgressPanel() const override;
    void setShowProgressPanel(bool show);
    /// Whether the server forgets what has been fetched; false unless set otherwise.
    bool deleteMessagesOnServer() const override;
    void setDeleteMessagesOnServer(bool forget);
    /// Whether what was fetched once is left alone; true unless set otherwise.
    bool onlyFetchUnseenMessages() const override;
    void setOnlyFetchUnseenMessages(bool onlyUnseen);
    std::uint16_t fetchPort() const override;
    POP3Security fetchSecurity() const override;
    TLSSettings tlsSettings() const override;

    /// What fetches for the account; null where its directory cannot be used.  Good as long as the account.
    const std::shared_ptr<POP3FetchStore>& fetcher() const { return _fetcher; }
    /// Begins to fetch; the mail arrives when the main run loop turns.  Throws as performFetch() of the fetcher
    /// does.
    bool doFetchNow(bool automatically) override;
    /// Ends a fetch, and moves on to the new directory.
    void setPath(std::string_view path) override;

private:
    void openFetcher();
    void closeFetcher();
    std::shared_ptr<POP3FetchStore> _fetcher;
};

}  // namespace lorvale
