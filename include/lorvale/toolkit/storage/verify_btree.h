#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/storable.h"
#include "lorvale/toolkit/storage/storage.h"

namespace brindle {

/// What a look through an ordered set has found.
struct LORVALE_EXPORT BTreeReport {
    /// Broken rules, one sentence each; empty for a sound set.  Ends early, saying so, when there are very
    /// many.
    std::vector<std::string> violations;

    std::uint32_t pageSize = 0;   ///< limit of a page's bytes
    std::uint32_t depth = 0;      ///< levels below the root
    std::uint32_t pages = 0;      ///< that were reached
    std::uint32_t objects = 0;    ///< in them
    std::uint64_t pageBytes = 0;  ///< what these pages take

    bool Sound() const { return violations.empty(); }
};

/// Checks the ordered set whose header is in the block as it stands in the storage, which is what Flush() has
/// left of it: order and size of its objects and pages, depth, counts, that no block is used twice.  The
/// prototype restores its objects.  Arbitrary bytes are fine, and end in violations.  It cannot see a value
/// that was replaced by another of its class, nor blocks that belong to no tree.  Nobody may write to the set
/// meanwhile.
LORVALE_EXPORT BTreeReport VerifyBTree(IAStorage& storage, std::uint32_t headerBlock,
                                       const IAOrderedStorable& prototype);

}  // namespace brindle
