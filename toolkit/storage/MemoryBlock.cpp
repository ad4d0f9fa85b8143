#include "toolkit/storage/MemoryBlock.h"

#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

std::unique_ptr<IAStoreStream> MemoryStream::Clone() {
    IAFail("memory has one stream", IAAssertionFailure);
}

// Reached when a writer goes on behind the end: the stream wants to hand its full buffer to the device.
void MemoryStream::Write(std::uint32_t, const std::uint8_t*, std::uint32_t) {
    IAFail("not past the blockend", StorePastBlockEnd);
}

}  // namespace brindle
