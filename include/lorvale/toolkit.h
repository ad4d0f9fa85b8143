#pragma once
/// The text-retrieval toolkit.  It needs nothing of the mail half.
#include "lorvale/toolkit/storage.h"
