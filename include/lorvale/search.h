#pragma once
/// Searching mailboxes that are indexed.
#include "lorvale/search/index_check.h"
#include "lorvale/search/index_manager.h"
#include "lorvale/search/query_matches.h"
#include "lorvale/search/unicode_analysis.h"
