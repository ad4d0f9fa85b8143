#pragma once
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/mutex.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

/// The size of every stream buffer, of every B-tree page and of a posting block.
inline constexpr std::uint32_t IADiskBlockSize = 4096;

/// The byte-addressed device under a storage, with a small write-back buffer in front of it.
///
/// SetPosition() names a block; the bytes of the block are then read from its start, or written from its
/// start, but never both before the next SetPosition().  Writing goes to the device in whole buffers of
/// IADiskBlockSize bytes, or of the block's size if that is smaller; what was not filled is zero.
/// Nothing here locks: whoever uses the stream holds GetMutex().
class LORVALE_EXPORT IAStoreStream : public IAObject {
public:
    IAStoreStream();
    IAStoreStream(const IAStoreStream&) = delete;
    IAStoreStream& operator=(const IAStoreStream&) = delete;
    /// Does not write what the buffer still holds.
    ~IAStoreStream() override;

    /// A new stream on the same device, with a buffer and a mutex of its own.
    virtual std::unique_ptr<IAStoreStream> Clone() = 0;
    virtual bool IsOpen() = 0;
    virtual bool IsWritable() = 0;
    /// Makes the device, empty and closed.
    virtual void Initialize() = 0;
    virtual void Open(bool writable) = 0;
    /// Hands everything written so far to the operating system.  Raises when any of it has been lost.
    virtual void Flush() = 0;
    /// Length of the device in bytes.
    virtual std::uint32_t GetEOF() = 0;
    virtual void SetEOF(std::uint32_t length) = 0;
    virtual void Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) = 0;
    /// Returns the number of bytes read: fewer than `count` at the end of the device.
    virtual std::uint32_t Read(std::uint32_t address, std::uint8_t* bytes, std::uint32_t count) = 0;
    /// Returns when everything flushed so far is safe from a crash of the machine.  The base does nothing,
    /// which is right for a device that does not outlive the program.
    virtual void Sync();

    /// Begins at a block.  Writes a dirty buffer first, at its old place.  Reads nothing yet.
    void SetPosition(std::uint32_t address, std::uint32_t blockSize);
    std::uint32_t GetPosition() const {
        return bufferPos + static_cast<std::uint32_t>(bufferNext - bufferStart);
    }
    /// Bytes between the position and the end of the block or of the device, whichever comes first: what a
    /// length read from the block can claim at most.
    std::uint32_t Remaining();

    std::uint8_t ReadByte() {
        if (bufferNext < bufferLimit) [[likely]]
            return *bufferNext++;
        return ReadPastEndOfBuffer();
    }
    void WriteByte(std::uint8_t byte) {
        if (bufferNext < bufferLimit) [[likely]]
            *bufferNext++ = byte;
        else
            WritePastEndOfBuffer(byte);
    }
    /// The highest byte first.
    std::uint32_t ReadUInt32() {
        if (bufferLimit - bufferNext < 4) [[unlikely]]
            return ReadUInt32Bytewise();
        const std::uint8_t* const at = bufferNext;
        bufferNext += 4;
        return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 | at[3];
    }
    void WriteUInt32(std::uint32_t value) {
        if (bufferLimit - bufferNext < 4) [[unlikely]]
            return WriteUInt32Bytewise(value);
        bufferNext[0] = static_cast<std::uint8_t>(value >> 24);
        bufferNext[1] = static_cast<std::uint8_t>(value >> 16);
        bufferNext[2] = static_cast<std::uint8_t>(value >> 8);
        bufferNext[3] = static_cast<std::uint8_t>(value);
        bufferNext += 4;
    }
    /// As if byte by byte.
    void ReadBytes(void* bytes, std::uint32_t count) {
        if (static_cast<std::size_t>(bufferLimit - bufferNext) < count) [[unlikely]]
            return ReadBytesPastEndOfBuffer(bytes, count);
        if (count == 0) return;  // `bytes` may be null then
        std::memcpy(bytes, bufferNext, count);
        bufferNext += count;
    }
    void WriteBytes(const void* bytes, std::uint32_t count) {
        if (static_cast<std::size_t>(bufferLimit - bufferNext) < count) [[unlikely]]
            return WriteBytesPastEndOfBuffer(bytes, count);
        if (count == 0) return;
        std::memcpy(bufferNext, bytes, count);
        bufferNext += count;
    }

    /// Writes the buffer if it is dirty.  What goes on writing after that begins with SetPosition().  After a
    /// failure the buffer stays dirty, so the failure is met again and not forgotten.
    void MaybeFlushBuffer();

    std::uint8_t ReadPastEndOfBuffer();
    void WritePastEndOfBuffer(std::uint8_t byte);

    /// Null for a stream over memory, which is used where it is made.
    IAMutex* GetMutex() const { return mutex.get(); }

protected:
    /// A stream that stands in a block of `blockSize` bytes at address 0, with `memorySize` bytes of somebody
    /// else's memory as its buffer, which is all to be read already or all to be written.
    IAStoreStream(std::uint8_t* memory, std::uint32_t memorySize, std::uint32_t blockSize)
        : bufferStart(memory),
          bufferNext(memory),
          bufferLimit(memory + memorySize),
          bufferSize(memorySize),
          blockEnd(blockSize) {}

private:
    std::uint32_t ReadUInt32Bytewise();
    void ReadBytesPastEndOfBuffer(void* bytes, std::uint32_t count);
    void WriteBytesPastEndOfBuffer(const void* bytes, std::uint32_t count);
    void WriteUInt32Bytewise(std::uint32_t value);

    std::uint8_t* bufferStart;     // IADiskBlockSize bytes, owned; not owned if there is no mutex
    std::uint8_t* bufferNext;      // the next byte to read or write
    std::uint8_t* bufferLimit;     // the end of what may be read or written now
    std::uint32_t bufferSize = 0;  // used for the current block
    std::uint32_t bufferPos = 0;   // address of the buffer's first byte
    std::uint32_t blockEnd = 0;    // address just behind the current block
    bool dirty = false;            // the buffer holds bytes not yet given to Write()
    std::unique_ptr<IAMutex> mutex;
};

/// A store stream over an ordinary file.
///
/// Clones share the open file.  Each read and write names its own place in the file, so clones may be used by
/// different threads at one time, each under its own mutex.
class LORVALE_EXPORT UFSStoreStream : public IAStoreStream {
public:
    explicit UFSStoreStream(const char* path);
    /// On a file that somebody else opened, closes and keeps open meanwhile.  Such a stream is a clone.
    UFSStoreStream(const char* name, std::FILE* file, bool isOpen, bool isWritable);
    ~UFSStoreStream() override;

    std::unique_ptr<IAStoreStream> Clone() override;
    bool IsOpen() override;
    bool IsWritable() override;
    void Initialize() override;
    void Open(bool writable) override;
    void Flush() override;
    std::uint32_t GetEOF() override;
    void SetEOF(std::uint32_t length) override;
    void Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) override;
    std::uint32_t Read(std::uint32_t address, std::uint8_t* bytes, std::uint32_t count) override;
    void Sync() override;

    bool IsClone() const { return isClone; }
    const char* GetFileName() const;

private:
    struct SharedFile;
    explicit UFSStoreStream(const UFSStoreStream& original);

    int Descriptor() const;
    void ExtendTo(std::uint32_t address);
    bool WriteAll(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count);

    bool isOpenFlag = false;
    bool isWritableFlag = false;
    bool isClone = false;
    std::shared_ptr<SharedFile> shared;  // with the clones
    std::uint32_t fEOFAddress = 0;       // the file is known to reach this far; it may reach further
};

}  // namespace brindle
