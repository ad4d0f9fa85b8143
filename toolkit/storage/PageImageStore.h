#pragma once
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "lorvale/export.h"
#include "toolkit/storage/PageImage.h"

namespace brindle {

/// The page images that a storage remembers, least recently used ones dropped first, so that the page caches of
/// its trees can stay as small as they are and still seldom read a block or restore an object twice.
///
/// It never holds what a read of the block would not give: whoever is about to change or give up a block calls
/// Forget() first, and an image made from a read enters only if nothing changed since the read began.  So nobody
/// above can tell a storage with a store from one without, but by the clock.
///
/// Safe to use from several threads; its mutex is the innermost of all and is held for no call out of the class.
class LORVALE_EXPORT PageImageStore {
public:
    using Image = std::shared_ptr<const PageImage>;

    /// `memoryLimit` bounds the memory of all images together, in bytes.
    explicit PageImageStore(std::size_t memoryLimit) : limit(memoryLimit) {}

    /// The image of the block `id`, or null.
    [[nodiscard]] Image Find(std::uint32_t id);

    /// Drops the image of `id`, whose block is about to be written or deallocated.
    void Forget(std::uint32_t id);

    /// Drops all.
    void Clear();

    /// A stamp to take before a block is read, for EnterRead().
    [[nodiscard]] std::uint64_t Changes() const;

    /// Enters what a read that began at `changesBefore` found, unless some block changed meanwhile: that could have
    /// been this one.
    void EnterRead(std::uint32_t id, Image image, std::uint64_t changesBefore);

    /// Enters what was just written to the block.
    void EnterWritten(std::uint32_t id, Image image);

    [[nodiscard]] std::size_t MemorySize() const;

private:
    struct Slot {
        std::uint32_t id;
        Image image;
        std::size_t cost;
    };
    using Slots = std::list<Slot>;

    // Under the mutex.
    void Enter(std::uint32_t id, Image image);
    void Drop(std::uint32_t id);

    const std::size_t limit;
    mutable std::mutex mutex;
    Slots slots;                                               // most recently used first; guarded by mutex
    std::unordered_map<std::uint32_t, Slots::iterator> byId;   // guarded by mutex
    std::size_t memory = 0;                                    // sum of the costs; guarded by mutex
    std::uint64_t changes = 0;                                 // guarded by mutex
};

}  // namespace brindle
