#pragma once
#include <cstdint>
#include <cstdio>
#include <memory>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

class IADocText;

/// A source of bytes in blocks of IADiskBlockSize, with a look back of one block.  One thread at a time.
class LORVALE_EXPORT IACharStream : public IAObject {
public:
    IACharStream();
    IACharStream(const IACharStream&) = delete;
    IACharStream& operator=(const IACharStream&) = delete;
    ~IACharStream() override;

    /// Reads and drops bytes until CurrentPos() is `pos`.  Raises "current position past requested" for a
    /// position that lies behind, "at end of stream" when the stream is shorter.
    virtual void AdvanceTo(std::uint32_t pos);
    /// Delivers up to `size` further bytes and answers how many; 0 at the end of the stream.
    virtual std::uint32_t GetNextBuffer(char* destination, std::uint32_t size) = 0;

    /// The next byte.  At the end it sets `*eos` and answers 0; it never clears `*eos`.
    char GetNextChar(bool* eos) {
        if (nextCharInBuffer == endChar && !ReadPastEndOfBuffer()) {
            *eos = true;
            return 0;
        }
        return *nextCharInBuffer++;
    }
    /// The position of the byte that GetNextChar() would deliver; the length of the stream at its end.
    std::uint32_t CurrentPos() const { return PositionOf(nextCharInBuffer); }
    /// Copies the bytes from `startPos` up to `endPos`, which must have been read.  Raises "start position past
    /// end position", "request before buffers" (TextSpanUnavailable) or "requested char after buffer!".
    void GetTextSpan(char* destination, std::uint32_t startPos, std::uint32_t endPos);

    // For those who read a block at a time: the bytes from GetNextCharInBuffer() up to GetEndChar() come next.
    // ReadPastEndOfBuffer() brings the next block when these are used up; false, with nothing changed, at the
    // end.
    char* GetBuffer() const { return buffer; }
    char* GetNextCharInBuffer() const { return nextCharInBuffer; }
    char* GetEndChar() const { return endChar; }
    std::uint32_t GetBufferPos() const { return bufferPos; }
    void SetNextCharInBuffer(char* next) { nextCharInBuffer = next; }
    std::uint32_t PositionOf(const char* inBuffer) const {
        return static_cast<std::uint32_t>(inBuffer - buffer) + bufferPos;
    }
    bool ReadPastEndOfBuffer();

protected:
    void SetBuffer(char* start) { buffer = start; }
    void SetEndChar(char* end) { endChar = end; }
    void SetBufferPos(std::uint32_t position) { bufferPos = position; }

private:
    std::unique_ptr<char[]> memory, spareMemory;  // of the two blocks; null until first needed
    char* lastBuffer = nullptr;                   // the block before
    char* lastBufferEnd = nullptr;
    char* buffer = nullptr;  // the current block
    char* nextCharInBuffer = nullptr;
    char* endChar = nullptr;
    std::uint32_t bufferPos = 0;  // position of the current block's first byte
};

/// Reads a document's text block by block.
class LORVALE_EXPORT DocTextCharStream : public IACharStream {
public:
    explicit DocTextCharStream(std::unique_ptr<IADocText> text);
    ~DocTextCharStream() override;

    std::uint32_t GetNextBuffer(char* destination, std::uint32_t size) override;
    IADocText* GetDocText() const { return docText.get(); }

private:
    const std::unique_ptr<IADocText> docText;
};

/// Reads a file.
class LORVALE_EXPORT FileCharStream : public IACharStream {
public:
    /// Without a file; FileFromPath() opens one.
    FileCharStream();
    /// Closes the file in the end.
    explicit FileCharStream(std::FILE* open);
    ~FileCharStream() override;

    /// Raises "file not opened successfully" if it cannot be opened.
    void FileFromPath(const char* path);
    std::uint32_t GetNextBuffer(char* destination, std::uint32_t size) override;

private:
    struct Close {
        void operator()(std::FILE* open) const noexcept { std::fclose(open); }
    };
    std::unique_ptr<std::FILE, Close> file;
};

/// Reads a block of memory.  All of it is the current buffer, so that every span of what was read can be had
/// again.
class LORVALE_EXPORT StringCharStream : public IACharStream {
public:
    /// Copies the text.
    StringCharStream(const char* text, std::uint32_t length);
    /// Takes the block over.
    StringCharStream(std::unique_ptr<char[]> block, std::uint32_t length);
    ~StringCharStream() override;

    std::uint32_t GetNextBuffer(char* destination, std::uint32_t size) override;

private:
    const std::unique_ptr<char[]> text;
};

}  // namespace brindle
