#include <algorithm>
#include <cstring>

#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/stream.h"

namespace brindle {

IAStoreStream::IAStoreStream()
    : bufferStart(static_cast<std::uint8_t*>(IAMallocSized(IADiskBlockSize))),
      bufferNext(bufferStart),
      bufferLimit(bufferStart),
      mutex(nullptr) {
    try {
        mutex = IANewMutex();
    } catch (...) {
        IAFreeSized(bufferStart, IADiskBlockSize);
        throw;
    }
}

IAStoreStream::~IAStoreStream() {
    if (mutex != nullptr) IAFreeSized(bufferStart, IADiskBlockSize);
}

void IAStoreStream::Sync() {}

void IAStoreStream::SetPosition(std::uint32_t address, std::uint32_t blockSize) {
    MaybeFlushBuffer();
    bufferNext = bufferLimit = bufferStart;
    bufferPos = address;
    blockEnd = address + std::min(blockSize, UINT32_MAX - address);  // the end may not wrap round
    bufferSize = std::min(blockSize, IADiskBlockSize);
}

std::uint32_t IAStoreStream::Remaining() {
    const std::uint32_t end = std::min(blockEnd, GetEOF());
    const std::uint32_t position = GetPosition();
    return end > position ? end - position : 0;
}

std::uint32_t IAStoreStream::ReadUInt32Bytewise() {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | ReadByte();
    return value;
}

void IAStoreStream::WriteUInt32Bytewise(std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) WriteByte(static_cast<std::uint8_t>(value >> shift));
}

void IAStoreStream::ReadBytesPastEndOfBuffer(void* bytes, std::uint32_t count) {
    auto* to = static_cast<std::uint8_t*>(bytes);
    while (count > 0) {
        const auto ready = std::min<std::size_t>(count, static_cast<std::size_t>(bufferLimit - bufferNext));
        if (ready == 0) {
            *to++ = ReadPastEndOfBuffer();
            --count;
            continue;
        }
        std::memcpy(to, bufferNext, ready);
        bufferNext += ready;
        to += ready;
        count -= static_cast<std::uint32_t>(ready);
    }
}

void IAStoreStream::WriteBytesPastEndOfBuffer(const void* bytes, std::uint32_t count) {
    const auto* from = static_cast<const std::uint8_t*>(bytes);
    while (count > 0) {
        const auto room = std::min<std::size_t>(count, static_cast<std::size_t>(bufferLimit - bufferNext));
        if (room == 0) {
            WritePastEndOfBuffer(*from++);
            --count;
            continue;
        }
        std::memcpy(bufferNext, from, room);
        bufferNext += room;
        from += room;
        count -= static_cast<std::uint32_t>(room);
    }
}

void IAStoreStream::MaybeFlushBuffer() {
    if (!dirty) return;
    IAAssertion(bufferPos <= blockEnd && bufferSize <= blockEnd - bufferPos, "not past the blockend",
                StorePastBlockEnd);
    Write(bufferPos, bufferStart, bufferSize);
    dirty = false;
}

std::uint8_t IAStoreStream::ReadPastEndOfBuffer() {
    bufferPos = GetPosition();
    bufferNext = bufferLimit = bufferStart;
    IAAssertion(bufferPos < blockEnd, "buffer position passed blockEnd", StorePastBlockEnd);
    // A block whose size is no multiple of the buffer's ends inside its last buffer.
    const std::uint32_t wanted = std::min(bufferSize, blockEnd - bufferPos);
    const std::uint32_t count = Read(bufferPos, bufferStart, wanted);
    IAAssertion(count != 0 && count <= wanted, "passed EOF", StorePastEOF);
    bufferLimit = bufferStart + count;
    return *bufferNext++;
}

void IAStoreStream::WritePastEndOfBuffer(std::uint8_t byte) {
    MaybeFlushBuffer();
    IAAssertion(bufferSize != 0, "not past the blockend", StorePastBlockEnd);  // a block without any space
    bufferPos += static_cast<std::uint32_t>(bufferLimit - bufferStart);
    bufferNext = bufferStart;
    bufferLimit = bufferStart + bufferSize;
    // The whole buffer goes to the device.  What lies behind the last byte written means nothing to a reader,
    // but it must neither be memory that never had a value nor a piece of some other block.
    std::memset(bufferStart, 0, bufferSize);
    *bufferNext++ = byte;
    dirty = true;
}

}  // namespace brindle
