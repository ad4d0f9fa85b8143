#pragma once
#include <cstddef>
#include <cstdint>
#include <typeinfo>
#include <vector>

namespace brindle {

/// One B-tree page as it stands in its block: the stored bytes, and where each object begins in them.
///
/// The offsets are what makes an image worth keeping: an object's length is known only after restoring it, and
/// with them any object of the page is restored without the others.  Page.h has the layout of the bytes.
struct PageImage {
    std::vector<std::uint8_t> bytes;             ///< the page's header and entries, at their true size
    std::vector<std::uint32_t> objectOffsets;    ///< of each entry's object, ascending
    std::uint32_t largestObject = 0;             ///< no object takes more bytes
    const std::type_info* objectType = nullptr;  ///< of the prototype that the offsets were found with

    std::uint32_t WordAt(std::size_t at) const {
        return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 |
               std::uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
    }
    void SetWordAt(std::size_t at, std::uint32_t value) {
        for (int i = 0; i < 4; ++i)
            bytes[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
    }
    /// What keeping this image costs, in bytes.
    std::size_t MemorySize() const {
        return sizeof(PageImage) + bytes.capacity() + objectOffsets.capacity() * sizeof(std::uint32_t);
    }
};

}  // namespace brindle
