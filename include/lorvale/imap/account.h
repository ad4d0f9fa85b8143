#pragma once
#include <cstdint>

#include "lorvale/export.h"
#include "lorvale/store/mail_account.h"

namespace lorvale {

class IMAPConnection;

/// What a mailbox on a server keeps of the messages on this machine.
enum class IMAPCachePolicy : std::int32_t {
    allMessages = 0,     ///< all are fetched in the background
    messagesAsRead = 1,  ///< a message is kept when it has been read
    noMessages = 2,      ///< no text is kept; the list of messages is
};

/// The account of a mailbox on a server, as far as the mailbox has to ask it.  The accounts folder supplies the
/// class.  Any thread may ask these; the answers change in the main thread.
class LORVALE_EXPORT IMAPStoreAccount : public MailAccount {
public:
    ~IMAPStoreAccount() override;

    virtual IMAPCachePolicy cachePolicy() const;       ///< all of them here
    virtual bool compactWhenClosingMailboxes() const;  ///< no
    /// Whether its mailboxes shall do without the server; no.
    virtual bool isOffline() const;
    /// Port, time-outs and security, before a connection is made.
    virtual void prepareConnection(IMAPConnection& connection) const;
};

}  // namespace lorvale
