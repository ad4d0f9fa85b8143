#pragma once
/// The text-retrieval toolkit.  It needs nothing of the mail half.
#include "lorvale/toolkit/analysis.h"
#include "lorvale/toolkit/corpus.h"
#include "lorvale/toolkit/index.h"
#include "lorvale/toolkit/retrieval.h"
#include "lorvale/toolkit/storage.h"
