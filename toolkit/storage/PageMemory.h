#pragma once
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "lorvale/toolkit/storage/memory.h"
#include "lorvale/toolkit/storage/stream.h"
#include "toolkit/storage/PageImage.h"

namespace brindle {

class IAStorage;

/// The page images of a storage: those that its trees have written since the last commit, which go to the
/// device when it is due, and those that it remembers, so that the page caches of the trees can stay as small
/// as they are and still seldom read a block or look for the objects in one twice.
///
/// A page that is written has its block's new place at once.  Its bytes wait here: for a commit or a
/// compaction, for somebody who reads the block itself, or until they take up three quarters of the memory.
/// They then go out by ascending address, neighbours joined.  Remembered images leave by the CLOCK algorithm.
///
/// It never holds what a read of the block would not give: the storage calls Forget() before a block is written
/// by somebody else or given back, and an image made from a read enters only if nothing changed since the read
/// began.  So nobody above can tell a storage with it from one without, but by the clock.
///
/// Find(), Release(), Changes() and EnterRead() are for any thread.  The other operations come under the
/// storage's mutex, and those that write also under the stream's.  Its own mutex is the innermost of all and is
/// held for no call out of the class.
class PageMemory {
public:
    /// What the storage has, or null.
    static PageMemory* Of(IAStorage& storage);

    /// `memoryLimit` bounds the memory of all images together, in bytes.
    explicit PageMemory(std::size_t memoryLimit) : limit(memoryLimit) {}

    /// The image of the block `id`, or none.
    [[nodiscard]] SharedPageImage Find(std::uint32_t id);
    /// Gives up the share in an image that is about to be changed, unless its bytes still have to be written.
    void Release(std::uint32_t id);
    /// A stamp to take before a block is read, for EnterRead().
    [[nodiscard]] std::uint64_t Changes() const;
    /// Enters what a read that began at `changesBefore` found, unless some block changed meanwhile: that could
    /// have been this one.
    void EnterRead(std::uint32_t id, SharedPageImage image, std::uint64_t changesBefore);

    /// Enters an image that is to be written to its block, at that address.  True if so much waits to be
    /// written that it is time for WriteBack().
    bool EnterUnwritten(std::uint32_t id, SharedPageImage image, std::uint32_t address);
    /// Drops the image of `id`, written or not.
    void Forget(std::uint32_t id);
    /// Where the last of the blocks ends that wait to be written; 0 if there is none.
    [[nodiscard]] std::uint64_t UnwrittenEnd() const;
    [[nodiscard]] bool IsUnwritten(std::uint32_t id) const;
    /// Writes what waits: all, or one block.  What a failure leaves goes on waiting.
    void WriteBack(IAStoreStream& stream);
    void WriteBack(IAStoreStream& stream, std::uint32_t id);

    [[nodiscard]] std::size_t MemorySize() const;

private:
    struct Slot {
        SharedPageImage image;
        std::uint32_t cost = 0;
        std::uint32_t address = 0;  // where the bytes go; 0 when they are there
        bool used = false;          // since the clock's hand came by
    };
    struct Unwritten {
        std::uint32_t address;
        std::uint32_t id;
        SharedPageImage image;
    };
    using UnwrittenList = IAVector<Unwritten>;

    // All under the mutex.
    Slot* SlotOf(std::uint32_t id);
    const Slot* SlotOf(std::uint32_t id) const;
    Slot& Enter(std::uint32_t id, SharedPageImage image);
    void Drop(Slot& slot);
    void SetWritten(Slot& slot);
    void MakeRoom();

    UnwrittenList TakeUnwritten();
    void WriteRun(IAStoreStream& stream, const UnwrittenList& list, std::size_t begin, std::size_t end);

    const std::size_t limit;
    mutable std::mutex mutex;         // guards all below
    IAVector<Slot> slots;             // by block ID
    IAVector<std::uint32_t> waiting;  // IDs of unwritten images, and of some that no longer are
    std::size_t hand = 0;
    std::size_t memory = 0;           // sum of the costs
    std::size_t unwrittenMemory = 0;  // of those with an address
    std::uint64_t changes = 0;
};

}  // namespace brindle
