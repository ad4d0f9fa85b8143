#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "toolkit/storage/PageImage.h"

namespace brindle {

/// The page images that a storage remembers, so that the page caches of its trees can stay as small as they are
/// and still seldom read a block or look for the objects in one twice.  Images that nobody has asked for lately
/// go first: a hand goes round, and takes those that were not used since it last came by.
///
/// It never holds what a read of the block would not give: whoever is about to change or give up a block calls
/// Forget() first, and an image made from a read enters only if nothing changed since the read began.  So
/// nobody above can tell a storage with a store from one without, but by the clock.
///
/// Safe to use from several threads; its mutex is the innermost of all and is held for no call out of the
/// class.
class PageImageStore {
public:
    using Image = std::shared_ptr<const PageImage>;

    /// `memoryLimit` bounds the memory of all images together, in bytes.
    explicit PageImageStore(std::size_t memoryLimit) : limit(memoryLimit) {}

    /// The image of the block `id`, or null.
    [[nodiscard]] Image Find(std::uint32_t id);

    /// Drops the image of `id`, whose block is about to be written or deallocated.
    void Forget(std::uint32_t id);

    /// A stamp to take before a block is read, for EnterRead().
    [[nodiscard]] std::uint64_t Changes() const;

    /// Enters what a read that began at `changesBefore` found, unless some block changed meanwhile: that could
    /// have been this one.
    void EnterRead(std::uint32_t id, Image image, std::uint64_t changesBefore);

    /// Enters what was just written to the block.
    void EnterWritten(std::uint32_t id, Image image);

    [[nodiscard]] std::size_t MemorySize() const;

private:
    struct Slot {
        Image image;  // null while the slot is free, or its block forgotten
        std::size_t cost = 0;
        std::uint32_t id = 0;  // 0 while the slot is free
        bool used = false;     // since the hand came by
    };

    // All under the mutex.
    Slot* SlotOf(std::uint32_t id);
    Slot& NewSlot(std::uint32_t id);
    void Enter(std::uint32_t id, Image image);
    void SetImage(Slot& slot, Image image);
    void MakeRoom();

    const std::size_t limit;
    mutable std::mutex mutex;  // guards all below
    std::vector<Slot> slots;
    std::vector<std::uint32_t> freeSlots;  // places in `slots`
    std::vector<std::uint32_t> places;     // by block ID: the place of its slot and 1; 0 if it has none
    std::size_t hand = 0;
    std::size_t memory = 0;  // sum of the costs
    std::uint64_t changes = 0;
};

}  // namespace brindle
