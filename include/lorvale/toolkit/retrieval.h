#pragma once
/// Searching indexes: the statistics and formulas of scores, and how far a search is.
#include "lorvale/toolkit/retrieval/progress.h"
#include "lorvale/toolkit/retrieval/similarity.h"
