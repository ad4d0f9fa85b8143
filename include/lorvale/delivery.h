#pragma once
/// Sending mail: docs/delivery.md tells the whole of it.
#include "lorvale/delivery/mail_delivery.h"
#include "lorvale/delivery/smtp_connection.h"
#include "lorvale/delivery/smtp_delivery.h"
