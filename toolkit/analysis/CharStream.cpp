#include "lorvale/toolkit/analysis/char_stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "lorvale/toolkit/corpus/doc.h"
#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/stream.h"

namespace brindle {

IACharStream::IACharStream() = default;
IACharStream::~IACharStream() = default;

bool IACharStream::ReadPastEndOfBuffer() {
    if (lastBuffer == nullptr) {
        spareMemory = std::make_unique_for_overwrite<char[]>(IADiskBlockSize);
        lastBuffer = lastBufferEnd = spareMemory.get();
    }
    const std::uint32_t count = GetNextBuffer(lastBuffer, IADiskBlockSize);
    if (count == 0) return false;
    IAAssertion(count <= IADiskBlockSize, "more bytes than asked for", IAAssertionFailure);
    bufferPos += static_cast<std::uint32_t>(endChar - buffer);
    std::swap(memory, spareMemory);
    std::swap(lastBuffer, buffer);
    lastBufferEnd = endChar;
    endChar = buffer + count;
    nextCharInBuffer = buffer;
    return true;
}

void IACharStream::AdvanceTo(std::uint32_t pos) {
    IAAssertion(CurrentPos() <= pos, "current position past requested", IAAssertionFailure);
    for (std::uint32_t left = pos - CurrentPos(); left != 0;) {
        IAAssertion(nextCharInBuffer != endChar || ReadPastEndOfBuffer(), "at end of stream",
                    IAAssertionFailure);
        const auto step = std::min(left, static_cast<std::uint32_t>(endChar - nextCharInBuffer));
        nextCharInBuffer += step;
        left -= step;
    }
}

void IACharStream::GetTextSpan(char* destination, std::uint32_t startPos, std::uint32_t endPos) {
    IAAssertion(endPos >= startPos, "start position past end position", IAAssertionFailure);
    if (startPos < bufferPos) {
        const auto lastSize = static_cast<std::uint32_t>(lastBufferEnd - lastBuffer);
        IAAssertion(startPos >= bufferPos - lastSize, "request before buffers", TextSpanUnavailable);
        const std::uint32_t count = std::min(endPos, bufferPos) - startPos;
        std::memcpy(destination, lastBufferEnd - (bufferPos - startPos), count);
        destination += count;
        startPos += count;
    }
    if (endPos <= bufferPos) return;
    IAAssertion(endPos <= CurrentPos(), "requested char after buffer!", IAAssertionFailure);
    std::memcpy(destination, buffer + (startPos - bufferPos), endPos - startPos);
}

DocTextCharStream::DocTextCharStream(std::unique_ptr<IADocText> text) : docText(std::move(text)) {}
DocTextCharStream::~DocTextCharStream() = default;

std::uint32_t DocTextCharStream::GetNextBuffer(char* destination, std::uint32_t size) {
    // A document whose source is gone has no text.
    return docText != nullptr ? docText->GetNextBuffer(reinterpret_cast<std::uint8_t*>(destination), size) : 0;
}

FileCharStream::FileCharStream() = default;
FileCharStream::FileCharStream(std::FILE* open) : file(open) {}
FileCharStream::~FileCharStream() = default;

void FileCharStream::FileFromPath(const char* path) {
    file.reset(std::fopen(path, "rb"));
    IAAssertion(file != nullptr, "file not opened successfully", IAAssertionFailure);
}

std::uint32_t FileCharStream::GetNextBuffer(char* destination, std::uint32_t size) {
    if (file == nullptr || std::feof(file.get()) != 0) return 0;
    return static_cast<std::uint32_t>(std::fread(destination, 1, size, file.get()));
}

StringCharStream::StringCharStream(const char* source, std::uint32_t length)
    : StringCharStream(std::make_unique_for_overwrite<char[]>(length), length) {
    if (length != 0) std::memcpy(text.get(), source, length);
}

StringCharStream::StringCharStream(std::unique_ptr<char[]> block, std::uint32_t length)
    : text(std::move(block)) {
    SetBuffer(text.get());
    SetNextCharInBuffer(text.get());
    SetEndChar(text.get() + length);
}

StringCharStream::~StringCharStream() = default;

std::uint32_t StringCharStream::GetNextBuffer(char*, std::uint32_t) {
    return 0;
}

}  // namespace brindle
