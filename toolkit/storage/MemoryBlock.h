#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/stream.h"

namespace brindle {

/// A stream whose buffer is a piece of somebody else's memory, and nothing behind it: what is read is read from
/// there, what is written stands there.  It lets objects be restored from bytes that are in memory already, and
/// stored into them, at the price of a few assignments.  It has no mutex and lives as long as one block does.
class MemoryStream final : public IAStoreStream {
public:
    /// For reading a block of `blockSize` bytes.  Where the bytes end before the block does, the store ended.
    MemoryStream(std::span<const std::uint8_t> bytes, std::uint32_t blockSize)
        // The cast is never felt: a stream that reads does not touch its buffer.
        : MemoryStream(const_cast<std::uint8_t*>(bytes.data()), bytes.size(), blockSize) {}
    /// For writing all of `bytes`.
    explicit MemoryStream(std::span<std::uint8_t> bytes)
        : MemoryStream(bytes.data(), bytes.size(), static_cast<std::uint32_t>(bytes.size())) {}

    std::unique_ptr<IAStoreStream> Clone() override;
    bool IsOpen() override { return true; }
    bool IsWritable() override { return true; }
    void Initialize() override {}
    void Open(bool) override {}
    void Flush() override {}
    std::uint32_t GetEOF() override { return memoryEnd; }
    void SetEOF(std::uint32_t) override {}
    void Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) override;
    std::uint32_t Read(std::uint32_t, std::uint8_t*, std::uint32_t) override { return 0; }

private:
    MemoryStream(std::uint8_t* memory, std::size_t size, std::uint32_t blockSize)
        : IAStoreStream(memory, static_cast<std::uint32_t>(size), blockSize),
          memoryEnd(static_cast<std::uint32_t>(size)) {}

    const std::uint32_t memoryEnd;
};

}  // namespace brindle
