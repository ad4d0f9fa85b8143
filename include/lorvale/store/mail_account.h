#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"

namespace lorvale {

class MessageStore;

/// The account that a store belongs to, as far as a store has to ask it.  The accounts folder supplies the
/// classes and registers the account of stores that are opened without one.  Belongs to the main thread.
class LORVALE_EXPORT MailAccount {
public:
    using Maker = std::function<std::shared_ptr<MailAccount>()>;
    /// An empty function registers none.  Any thread.
    static void registerDefaultAccount(Maker make);
    /// Null when none is registered.
    static std::shared_ptr<MailAccount> defaultAccount();

    MailAccount(const MailAccount&) = delete;
    MailAccount& operator=(const MailAccount&) = delete;
    virtual ~MailAccount();

    /// The local directory, standardised.
    virtual std::string path() const = 0;
    virtual std::string displayName() const = 0;
    /// The path of a store less that of the account; the whole path for a store elsewhere.
    virtual std::string relativePathForStore(const MessageStore& store) const;

    // For a store on a server.
    virtual std::optional<std::string> hostname() const;  ///< nullopt here
    virtual std::optional<std::string> username() const;  ///< nullopt here
    /// The stored password; without one and with `mayAsk` that of promptUserForPassword().
    virtual std::optional<std::string> password(bool mayAsk);
    virtual std::optional<std::string> promptUserForPassword();  ///< nullopt here
    virtual void forgetRememberedPassword();
    virtual bool shouldAutoFetch() const;  ///< true here
    /// A message for the user that says where it comes from.
    virtual std::string errorStringWithMessage(std::string_view message, std::string_view mailbox) const;

protected:
    MailAccount() = default;
};

}  // namespace lorvale
