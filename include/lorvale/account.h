#pragma once
/// Accounts: where a user's mail comes from, and the trees of mailboxes.
#include "lorvale/account/imap_account.h"
#include "lorvale/account/local_account.h"
#include "lorvale/account/pop_account.h"
#include "lorvale/store/mail_account.h"
