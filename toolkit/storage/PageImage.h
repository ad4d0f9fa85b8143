#pragma once
#include <cstddef>
#include <cstdint>
#include <typeinfo>
#include <vector>

namespace brindle {

/// One B-tree page as it stands in its block: the stored bytes, and where each object begins in them.  Never
/// changed once made, so a page in memory and the storage's PageImageStore share one.
///
/// The offsets are what makes an image worth keeping: an object's length is known only after restoring it, and
/// with them a page is made from its image without restoring any object but those that are asked for.
struct PageImage {
    std::vector<std::uint8_t> bytes;            ///< the page's header and entries, at their true size
    std::vector<std::uint32_t> objectOffsets;   ///< of each entry's object, ascending
    std::uint32_t largestObject = 0;            ///< the most that one object takes
    const std::type_info* objectType = nullptr; ///< of the prototype that the offsets were found with

    /// What keeping this image costs, in bytes.
    [[nodiscard]] std::size_t MemorySize() const {
        return sizeof(PageImage) + bytes.capacity() + objectOffsets.capacity() * sizeof(std::uint32_t);
    }
};

}  // namespace brindle
