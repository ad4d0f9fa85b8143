#include "toolkit/storage/MemoryBlock.h"

#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

MemoryStream::MemoryStream(std::span<const std::uint8_t> bytes, std::uint32_t blockSize)
    // The cast is never felt: a stream that reads does not touch its buffer.
    : IAStoreStream(const_cast<std::uint8_t*>(bytes.data()), static_cast<std::uint32_t>(bytes.size()), blockSize),
      memoryEnd(static_cast<std::uint32_t>(bytes.size())) {}

MemoryStream::MemoryStream(std::span<std::uint8_t> bytes)
    : IAStoreStream(bytes.data(), static_cast<std::uint32_t>(bytes.size()),
                    static_cast<std::uint32_t>(bytes.size())),
      memoryEnd(static_cast<std::uint32_t>(bytes.size())) {}

std::unique_ptr<IAStoreStream> MemoryStream::Clone() {
    IAFail("memory has one stream", IAAssertionFailure);
}

// Reached when a writer goes on behind the end: the stream wants to hand its full buffer to the device.
void MemoryStream::Write(std::uint32_t, const std::uint8_t*, std::uint32_t) {
    IAFail("not past the blockend", StorePastBlockEnd);
}

}  // namespace brindle
