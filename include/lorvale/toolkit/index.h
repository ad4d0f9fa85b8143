#pragma once
/// The toolkit's indexes: what ties documents, analysis and storage together, the tables of terms and
/// documents, the lists of postings, and the vectors of documents.
#include "lorvale/toolkit/index/index_base.h"
#include "lorvale/toolkit/index/inverted_index.h"
#include "lorvale/toolkit/index/postings.h"
#include "lorvale/toolkit/index/records.h"
#include "lorvale/toolkit/index/term_index.h"
#include "lorvale/toolkit/index/vector_index.h"
#include "lorvale/toolkit/index/verify_index.h"
