#pragma once
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/data.h"

namespace lorvale {

/// An address book, for an application to supply: it derives a class and registers it.  This class knows
/// nobody.  One instance serves the process; it may be asked from any thread.
class LORVALE_EXPORT MailAddressManager {
public:
    using Maker = std::function<std::shared_ptr<MailAddressManager>()>;
    /// Drops the instance of the class registered before.  An empty function registers none.
    static void registerAddressManagerClass(Maker make);
    /// The one instance, made on demand; null when no class is registered.
    static std::shared_ptr<MailAddressManager> addressManager();

    virtual ~MailAddressManager();

    virtual void showAddressManagerPanel();
    /// The object that takes the addresses picked in the panel, compared by identity.
    void setAddressPanelRecipient(std::shared_ptr<void> recipient) { _recipient = std::move(recipient); }
    std::shared_ptr<void> addressPanelRecipient() const { return _recipient; }

    virtual std::optional<std::string> nextCompletionForPartialAddress(std::string_view partial);
    virtual std::size_t numberOfCompletionsForPartialAddress(std::string_view partial);
    virtual std::vector<std::string> allCompletionsForPartialAddress(std::string_view partial);
    /// The bytes of a picture of the person.
    virtual std::optional<Data> imageForMailAddress(std::string_view address);
    /// The addresses a private alias stands for, as one list; nullopt for a name that is none.
    virtual std::optional<std::string> expandPrivateAlias(std::string_view alias);
    virtual std::optional<std::vector<std::string>> expandPrivateAliases(
        const std::vector<std::string>& aliases);
    /// The address that mail to a user of this system goes on to; nullopt when it stays.
    virtual std::optional<std::string> expandUserAlias(std::string_view user);

private:
    std::shared_ptr<void> _recipient;
};

}  // namespace lorvale
