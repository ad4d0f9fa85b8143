#pragma once
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/account.h"

namespace mailhost {

/// From now on accounts do without their servers.
void workOffline();

/// The name by which the user knows an account, whether or not it has its server at the moment.
std::string nameOf(const lorvale::MailAccount& account);

/// The setting, whatever holds for this program.
lorvale::IMAPCachePolicy configuredPolicy(const lorvale::IMAPAccount& account);

std::vector<std::shared_ptr<lorvale::MailAccount>> registeredAccounts();
/// The accounts of the registry and, where it is not among them, that of the local mailboxes before them.
std::vector<std::shared_ptr<lorvale::MailAccount>> allAccounts();
/// Throws Failure for a name that no account has.
std::shared_ptr<lorvale::MailAccount> accountNamed(std::string_view name);

/// A mailbox, or folder, of an account.
struct Place {
    std::shared_ptr<lorvale::MailAccount> account;
    std::string name;  ///< within the account; not empty
    std::string path;  ///< on the disk
};
/// What a user means by a path that lies in an account, or by "ACCOUNT/NAME"; nullopt for anything else.
std::optional<Place> placeInAccount(const std::string& typed);

/// The path of a mailbox, for which a user may type "ACCOUNT/NAME" too, and leave ".mbox" out there.
std::string pathOfMailbox(const std::string& typed);

}  // namespace mailhost
