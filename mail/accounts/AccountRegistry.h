#pragma once
#include <memory>
#include <optional>
#include <vector>

#include "lorvale/platform/mutex.h"
#include "lorvale/store/mail_account.h"
#include "mail/accounts/AccountEntry.h"

namespace lorvale {

/// The accounts of this process and the user default in which they are written.  Several processes may share
/// that: what this one knows of it is what it read or wrote last, and a save carries over only what is
/// different here since.  The main thread changes the accounts; any thread may ask for them.
class AccountRegistry {
public:
    using Accounts = std::vector<std::shared_ptr<MailAccount>>;

    static AccountRegistry& shared();

    /// Read when first asked for.
    Accounts accounts();
    bool save(const Accounts& accounts);
    /// As before the first question: the next one reads the user default again.
    void forget();

private:
    /// An account and its entry as the user default has it.
    struct Known {
        std::shared_ptr<MailAccount> account;
        AccountEntry entry;
    };

    static std::vector<Known> read();
    /// What to write, where `current` stands in the user default now.
    static std::vector<AccountEntry> merged(const std::vector<AccountEntry>& current,
                                            const std::vector<Known>& before, const std::vector<Known>& now);

    Mutex _mutex;
    std::optional<Accounts> _accounts LORVALE_GUARDED_BY(_mutex);  // nullopt until read
    std::vector<Known> _written LORVALE_GUARDED_BY(_mutex);        // by this process last
};

}  // namespace lorvale
