#pragma once
/// Mail that stays on an IMAP server: the protocol's client, and mailboxes over it.
#include "lorvale/imap/account.h"
#include "lorvale/imap/connection.h"
#include "lorvale/imap/delegate.h"
#include "lorvale/imap/fetched.h"
#include "lorvale/imap/message.h"
#include "lorvale/imap/search.h"
#include "lorvale/imap/store.h"
#include "lorvale/imap/structure.h"
#include "lorvale/imap/value.h"
#include "lorvale/imap/words.h"
