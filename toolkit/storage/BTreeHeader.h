#pragma once
#include <cstdint>

namespace brindle {

class IAStorage;
class IAStoreStream;

// The header block of a tree, 20 bytes: big-endian 32-bit fields.
//   offset  size
//        0     4  root       block ID of the root page
//        4     4  depth      levels below the root; 0 when the root is a leaf
//        8     4  count      objects in the tree
//       12     4  pageCount  pages in the tree
//       16     4  pageSize   limit of a page's stored bytes
// An empty tree of usual pages whose root is block 2:
//   00 00 00 02  00 00 00 00  00 00 00 00  00 00 00 01  00 00 10 00
struct BTreeHeader {
    static constexpr std::uint32_t StoreSize = 20;
    /// A page below the root has an entry at least, so a tree this deep would not fit into any store.
    static constexpr std::uint32_t MaxDepth = 31;

    std::uint32_t rootId = 0;
    std::uint32_t depth = 0;
    std::uint32_t count = 0;
    std::uint32_t pageCount = 0;
    std::uint32_t pageSize = 0;

    void Write(IAStorage* storage, std::uint32_t block, IAStoreStream* stream) const;
    /// As it stands, unchecked.
    static BTreeHeader Read(IAStorage* storage, std::uint32_t block, IAStoreStream* stream);
};

}  // namespace brindle
