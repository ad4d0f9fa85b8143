#pragma once
/// Mail that arrives: from the system's spool and from POP3 servers, routed into its mailboxes.
#include "lorvale/fetch/fetch_store.h"
#include "lorvale/fetch/message_router.h"
#include "lorvale/fetch/pop3_connection.h"
#include "lorvale/fetch/pop3_fetch_store.h"
#include "lorvale/fetch/spool_fetch_store.h"
