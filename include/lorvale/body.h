#pragma once
/// The bodies of messages: MIME, in both dialects, and plain.
#include "lorvale/body/mime_body.h"
#include "lorvale/body/mime_body_part.h"
#include "lorvale/body/plain_body.h"
