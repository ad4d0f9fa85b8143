#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/stream.h"

namespace brindle {

/// What a look through a storage's committed state has found.
struct LORVALE_EXPORT StorageReport {
    /// Broken rules, one sentence each; empty for a sound storage.  Ends early, saying so, when there are very
    /// many.
    std::vector<std::string> violations;
    /// What no rule forbids, but what hardly ever is right: blocks that the end of the file cuts off.  A block
    /// that was given space and then never filled looks the same.
    std::vector<std::string> doubts;

    std::uint32_t maxID = 0;          ///< IDs ever handed out
    std::uint32_t freeIDs = 0;        ///< of these, given back
    std::uint32_t writtenBlocks = 0;  ///< of these, with space; the system block is one of them
    std::uint32_t names = 0;
    std::uint64_t usedBytes = 0;  ///< space of the written blocks and the file header
    std::uint32_t fileBytes = 0;

    bool Sound() const { return violations.empty(); }
};

/// Checks every rule of the storage format on what the stream's last commit left: the file header, the
/// system block, that every byte of the space belongs to exactly one block or free list, the chain of free
/// IDs, the names.  The stream must be open; only its Read() and GetEOF() are used, under its mutex.
/// Arbitrary bytes are fine, and end in violations.  Raises only what the stream raises.
///
/// What it cannot see: the contents of blocks, which carry no checksums (VerifyBTree() knows those of ordered
/// sets); a block that nobody needs any more but nobody has given back; whether the bytes that a block should
/// have ever reached the file; and what was done since the last commit.
LORVALE_EXPORT StorageReport VerifyStorage(IAStoreStream& stream);

/// The same for a file.  One that cannot be opened is a violation.
LORVALE_EXPORT StorageReport VerifyStorageFile(const char* path);

}  // namespace brindle
