#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Accounts.h"
#include "lorvale/imap.h"

namespace mailhost {

/// The mailbox of an IMAP account that a user means; nullopt for anything else.
std::optional<Place> placeOnServer(const std::string& typed);
std::shared_ptr<lorvale::IMAPAccount> serverAccount(const Place& place);

enum class ServerAccess {
    look,   ///< marks nothing as read
    change  ///< needs no server either: what goes into the mailbox is queued
};
/// Open, and with a list that is the server's now; without a server as it was known, which the user is told.
/// Throws Failure for a mailbox of which nothing is known, or that the server does not have.
std::shared_ptr<lorvale::IMAPStore> openOnServer(const Place& place, ServerAccess access);
/// What its server said when it did not take messages, as the end of a sentence; empty for another mailbox.
std::string reasonOf(const lorvale::MessageStore& store);
/// Throws Failure unless the server can be told of changes.
void needServer(const Place& place, const lorvale::IMAPStore& store);
/// Fetches the texts that the mirror lacks, whatever the account keeps, under a progress bar.  Throws Failure
/// when the server goes meanwhile.
void fetchMissing(const Place& place, lorvale::IMAPStore& store);
/// Serves the main loop until what the server has told of changes is in the list.
void settle(lorvale::IMAPStore& store);

/// Calls for each mailbox of an account, by its name.
void forEachMailbox(lorvale::IMAPAccount& account, const std::function<void(const std::string&)>& call);

}  // namespace mailhost
