#pragma once
/// Searching indexes: accessors and their hits, queries, the statistics and formulas of scores, and how far a
/// search is.
#include "lorvale/toolkit/retrieval/accessor.h"
#include "lorvale/toolkit/retrieval/boolean_query.h"
#include "lorvale/toolkit/retrieval/hits.h"
#include "lorvale/toolkit/retrieval/inverted_accessor.h"
#include "lorvale/toolkit/retrieval/posting_queue.h"
#include "lorvale/toolkit/retrieval/progress.h"
#include "lorvale/toolkit/retrieval/query.h"
#include "lorvale/toolkit/retrieval/query_parser.h"
#include "lorvale/toolkit/retrieval/ranked_accessor.h"
#include "lorvale/toolkit/retrieval/sentence_parser.h"
#include "lorvale/toolkit/retrieval/similarity.h"
#include "lorvale/toolkit/retrieval/tf_map.h"
