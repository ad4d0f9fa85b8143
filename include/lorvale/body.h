#pragma once
/// The bodies of messages: MIME, in both dialects, plain, and of the older rich format.
#include "lorvale/body/letters.h"
#include "lorvale/body/mime_body.h"
#include "lorvale/body/mime_body_part.h"
#include "lorvale/body/plain_body.h"
#include "lorvale/body/tarn_mail_body.h"
