#pragma once
/// From bytes to terms: character streams, tokenizers, filters and stemmers, and the analyses that chain them.
#include "lorvale/toolkit/analysis/analysis.h"
#include "lorvale/toolkit/analysis/char_stream.h"
#include "lorvale/toolkit/analysis/filters.h"
#include "lorvale/toolkit/analysis/letter_tree.h"
#include "lorvale/toolkit/analysis/stemmers.h"
#include "lorvale/toolkit/analysis/stemming_dictionary.h"
#include "lorvale/toolkit/analysis/term.h"
#include "lorvale/toolkit/analysis/token_stream.h"
#include "lorvale/toolkit/analysis/tokenizers.h"
