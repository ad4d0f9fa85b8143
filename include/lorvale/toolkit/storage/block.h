#pragma once
#include <cstdint>
#include <span>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/mutex.h"
#include "lorvale/toolkit/storage/storage.h"
#include "lorvale/toolkit/storage/stream.h"

namespace brindle {

/// Reads one block from its start.  Holds the stream's mutex for as long as it lives, so it is short-lived,
/// and blocks on one stream are opened one after the other, never nested.  Reading past the block raises
/// StorePastBlockEnd, past the end of the store StorePastEOF.
///
/// The block's place is looked up once.  A thread that writes or deallocates the same block meanwhile, or
/// commits and then writes any, may give that place other bytes under the reader's hands: the reader holds the
/// lock of the tree or index that the block belongs to, and the writer too.
class LORVALE_EXPORT IAInputBlock {
public:
    /// A null stream stands for the storage's own; another one is a clone of it.
    IAInputBlock(IAStorage* storage, std::uint32_t id, IAStoreStream* useStream = nullptr);
    /// Goes on reading where the stream stands, whose mutex the caller holds if it has one.
    explicit IAInputBlock(IAStoreStream* positioned) : stream(positioned), mutex(nullptr) {}
    IAInputBlock(const IAInputBlock&) = delete;
    IAInputBlock& operator=(const IAInputBlock&) = delete;
    ~IAInputBlock() {
        if (mutex != nullptr) Unlock();
    }

    /// The address in the store: useful for differences.
    std::uint32_t GetPosition() const { return stream->GetPosition(); }
    /// The most bytes that can still be read: check a count from the block against it before trusting it.
    std::uint32_t Remaining() { return stream->Remaining(); }
    void ReadBuffer(void* bytes, std::uint32_t count) { stream->ReadBytes(bytes, count); }
    std::uint32_t ReadUInt32() { return stream->ReadUInt32(); }
    std::uint8_t ReadByte() { return stream->ReadByte(); }

private:
    struct Extent {
        std::uint32_t address, size;
    };
    IAInputBlock(IAStoreStream* inUse, Extent extent) LORVALE_NO_THREAD_SAFETY_ANALYSIS;
    void Unlock() LORVALE_NO_THREAD_SAFETY_ANALYSIS;

    IAStoreStream* const stream;
    IAMutex* const mutex;  // held; null if the caller holds it
};

/// Writes one block from its start, all of it: what is not written is lost.  `size` is what the block must have
/// room for; it may move for that.  Writing more than the block's space raises StorePastBlockEnd when the
/// bytes go to the device, at the latest in the destructor, which may therefore throw, though not while
/// another exception is under way.
class LORVALE_EXPORT IAOutputBlock {
public:
    IAOutputBlock(IAStorage* storage, std::uint32_t id, std::uint32_t size, IAStoreStream* useStream = nullptr);
    /// Goes on writing where the stream stands, whose mutex the caller holds if it has one.
    explicit IAOutputBlock(IAStoreStream* positioned);
    IAOutputBlock(const IAOutputBlock&) = delete;
    IAOutputBlock& operator=(const IAOutputBlock&) = delete;
    ~IAOutputBlock() noexcept(false);

    std::uint32_t GetPosition() const { return stream->GetPosition(); }
    void WriteBuffer(const void* bytes, std::uint32_t count) { stream->WriteBytes(bytes, count); }
    void WriteUInt32(std::uint32_t value) { stream->WriteUInt32(value); }
    void WriteByte(std::uint8_t byte) { stream->WriteByte(byte); }

private:
    struct Extent {
        std::uint32_t address, size;
    };
    IAOutputBlock(IAStoreStream* inUse, Extent extent);

    IAStoreStream* const stream;
    const int exceptionsAtStart;
    const IALock lock;  // last: given up after the destructor has flushed, even if that fails
};

/// Variable-length integers, 1 to 5 bytes: seven bits a byte, the lowest first, 0x80 set in all but the last.
///   0: 00   127: 7F   128: 80 01   300: AC 02   0xFFFFFFFF: FF FF FF FF 0F
constexpr std::uint32_t VInt32Size(std::uint32_t value) {
    return 1u + (value >= 1u << 7) + (value >= 1u << 14) + (value >= 1u << 21) + (value >= 1u << 28);
}

inline void VInt32Write(std::uint32_t value, IAOutputBlock* output) {
    for (; value >= 0x80; value >>= 7) output->WriteByte(static_cast<std::uint8_t>(value | 0x80));
    output->WriteByte(static_cast<std::uint8_t>(value));
}

/// Reads up to a byte without 0x80, however many there are; bits above the 32nd are dropped.
inline std::uint32_t VInt32Read(IAInputBlock* input) {
    std::uint32_t byte = input->ReadByte();
    std::uint32_t value = byte & 0x7F;
    for (unsigned shift = 7; byte >= 0x80; shift += 7) {
        byte = input->ReadByte();
        if (shift > 28) [[unlikely]]
            shift = 35;  // damage: nothing of these bytes counts, but they are read to the last
        else
            value |= (byte & 0x7F) << shift;
    }
    return value;
}

/// The same from bytes in memory, of which it takes what it reads.  Raises StorePastBlockEnd where they end
/// before the integer does.
inline std::uint32_t VInt32Read(std::span<const std::uint8_t>& from) {
    std::uint32_t value = 0;
    for (unsigned shift = 0; !from.empty(); shift += 7) {
        const std::uint32_t byte = from.front();
        from = from.subspan(1);
        if (shift <= 28) value |= (byte & 0x7F) << shift;
        if (byte < 0x80) return value;
    }
    IAFail("buffer position passed blockEnd", StorePastBlockEnd);
}

}  // namespace brindle
