#pragma once
/// Mailboxes: the abstract store, the choice of a class for a path, and the stores of this library.
#include "lorvale/store/berkeley_mbox.h"
#include "lorvale/store/check.h"
#include "lorvale/store/mail_account.h"
#include "lorvale/store/mailbox_index.h"
#include "lorvale/store/mbox_reader.h"
#include "lorvale/store/message_cache.h"
#include "lorvale/store/message_store.h"
#include "lorvale/store/tarn_mbox.h"
