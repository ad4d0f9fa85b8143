#pragma once
#include <cstdint>
#include <functional>
#include <span>

#include "lorvale/toolkit/storage/storable.h"

namespace brindle {

using StoredVisitor = std::function<void(std::span<const std::uint8_t> stored)>;

/// Shows the stored forms of the members that an iterator has still to give, and takes it to the end: many
/// times as fast as Next(), for who wants a field or two of each.  The set's mutex is held all the while, and
/// the visitor changes nothing in the set.
void ForEachStored(IAOrderedStorableIterator& members, const StoredVisitor& visit);

}  // namespace brindle
