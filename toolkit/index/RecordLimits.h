#pragma once
#include <cstdint>

#include "lorvale/toolkit/index/inverted_index.h"
#include "toolkit/storage/Page.h"

namespace brindle {

/// The largest record that a table takes.
inline constexpr std::uint32_t kMaxRecordSize = MaxEntrySizeFor(IADiskBlockSize) - BTEntryOverhead;
/// A document of that stored size fits a record, whatever numbers stand beside it.
inline constexpr std::uint32_t kMaxDocumentStoreSize = kMaxRecordSize - 6 * VInt32Size(0xFFFFFFFF);
/// And so does a term of that length, with as many postings as a record may hold, each as long as they come.
inline constexpr std::uint32_t kMaxTermLength =
    kMaxRecordSize - 8 * VInt32Size(0xFFFFFFFF) - (ImmediatePostingThreshold - 1) * 2 * VInt32Size(0xFFFFFFFF);
static_assert(kMaxTermLength >= 512);

/// Document numbers stay below: a posting holds twice the difference of two.
inline constexpr std::uint32_t kDocIDLimit = 0x7FFFFFFF;

}  // namespace brindle
