#pragma once
#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/stream.h"

namespace brindle::testing {

using Bytes = std::vector<std::uint8_t>;

/// A store stream over bytes in memory, which outlive it, so that a storage can be opened again on them.
/// Refuses to grow beyond a limit, since a damaged storage may lead it anywhere in 2 GB.
class MemoryStoreStream : public IAStoreStream {
public:
    static constexpr std::uint32_t kLimit = 1u << 26;

    explicit MemoryStoreStream(std::shared_ptr<Bytes> bytes) : device(std::move(bytes)) {}

    std::unique_ptr<IAStoreStream> Clone() override {
        auto clone = std::make_unique<MemoryStoreStream>(device);
        if (open) clone->Open(writable);
        return clone;
    }
    bool IsOpen() override { return open; }
    bool IsWritable() override { return open && writable; }
    void Initialize() override { device->clear(); }
    void Open(bool forWriting) override {
        open = true;
        writable = forWriting;
    }
    void Flush() override { MaybeFlushBuffer(); }
    std::uint32_t GetEOF() override { return static_cast<std::uint32_t>(device->size()); }
    void SetEOF(std::uint32_t length) override { device->resize(length); }
    void Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) override {
        IAAssertion(address <= kLimit && count <= kLimit - address, "unable to extend store is full",
                    StoreFull);
        if (device->size() < address + count) device->resize(address + count);
        std::copy_n(bytes, count, device->begin() + address);
    }
    std::uint32_t Read(std::uint32_t address, std::uint8_t* bytes, std::uint32_t count) override {
        if (address >= device->size()) return 0;
        count = std::min(count, GetEOF() - address);
        std::copy_n(device->begin() + address, count, bytes);
        return count;
    }

private:
    std::shared_ptr<Bytes> device;
    bool open = false;
    bool writable = false;
};

}  // namespace brindle::testing
