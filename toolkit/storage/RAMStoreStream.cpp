#include "lorvale/toolkit/storage/ram_stream.h"

#include <algorithm>

#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

namespace {

/// As that of a file: a storage addresses 2 GB.
constexpr std::uint32_t kMostBytes = 0x7FFFFFFF;

}  // namespace

RAMStoreStream::~RAMStoreStream() = default;

std::unique_ptr<IAStoreStream> RAMStoreStream::Clone() {
    std::unique_ptr<RAMStoreStream> clone(new RAMStoreStream(memory));
    clone->isOpen = isOpen;
    clone->isWritable = isWritable;
    return clone;
}

void RAMStoreStream::Initialize() {
    memory->clear();
}

void RAMStoreStream::Open(bool writable) {
    isOpen = true;
    isWritable = writable;
}

void RAMStoreStream::Flush() {
    MaybeFlushBuffer();
}

void RAMStoreStream::SetEOF(std::uint32_t length) {
    IAAssertion(length <= kMostBytes, "unable to extend store is full", StoreFull);
    memory->resize(length);
}

void RAMStoreStream::Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) {
    IAAssertion(count <= kMostBytes && address <= kMostBytes - count, "unable to extend store is full",
                StoreFull);
    if (memory->size() < address + count) memory->resize(address + count);
    std::copy_n(bytes, count, memory->begin() + address);
}

std::uint32_t RAMStoreStream::Read(std::uint32_t address, std::uint8_t* bytes, std::uint32_t count) {
    if (address >= memory->size()) return 0;
    count = std::min(count, GetEOF() - address);
    std::copy_n(memory->begin() + address, count, bytes);
    return count;
}

}  // namespace brindle
