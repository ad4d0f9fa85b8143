#pragma once
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <limits>

namespace lorvale {

/// Places in a mailbox file are 32-bit numbers, so a larger file is not opened.
inline constexpr std::uint64_t kLargestMbox = std::numeric_limits<std::uint32_t>::max();

/// Of a new mailbox, a compacted one and a copy: mail is its owner's alone.
inline constexpr mode_t kMailboxPermissions = 0700;

/// A mailbox is read and copied in blocks of so many bytes: they fit the processor's second cache, where the
/// scan then finds what was read.
inline constexpr std::size_t kMboxBlock = 256 * 1024;

}  // namespace lorvale
