#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/mutex.h"
#include "lorvale/toolkit/storage/object.h"
#include "lorvale/toolkit/storage/stream.h"

namespace brindle {

/// Numbered blocks in one store, some of them with names, made durable together by Commit().
///
/// Initialize() or Open() comes first, once.  There is no close: deleting the storage drops what was not
/// committed, and whatever happens before the end of a Commit() the store still shows the last one in full.
/// ID 0 is the storage's own; a caller's 0 stands for no block.  IAInputBlock and IAOutputBlock read and write.
///
/// Initialize() on a storage that is open raises "storage already open" and touches nothing.  Opening refuses
/// tables that cannot be true ("VSIV"); opening for writing also refuses blocks and free space that overlap.
///
/// Operations lock the storage's mutex where they need it; GetReadAddress(), GetWriteAddress() and
/// GetBlockSize() leave that to their caller.  Each operation is whole by itself, several are not: while
/// another thread writes, a block may move, change or go between two of them.  Who reads or writes a record of
/// several blocks therefore holds the lock of the tree or index that the record belongs to, for all of it.
class LORVALE_EXPORT IAStorage : public IAObject {
public:
    IAStorage(std::unique_ptr<IAStoreStream> stream, std::uint32_t type);
    IAStorage(const IAStorage&) = delete;
    IAStorage& operator=(const IAStorage&) = delete;
    ~IAStorage() override;

    /// Makes a new, empty storage on the stream and commits it.
    virtual void Initialize() = 0;
    virtual void Open(bool writable) = 0;
    virtual void Commit() = 0;
    /// A new ID.  The block has no space until it is written.
    virtual std::uint32_t Allocate() = 0;
    virtual void Deallocate(std::uint32_t id) = 0;
    /// Names are bytes without a NUL, at most 254 of them: a longer one makes every Commit() fail.
    virtual void TOC_Set(const char* name, std::uint32_t id) = 0;
    /// 0 if the name is not there.
    virtual std::uint32_t TOC_Get(const char* name) = 0;
    /// True if the name was there.
    virtual bool TOC_Remove(const char* name) = 0;
    /// Length of the store.
    virtual std::uint32_t TotalSpace() = 0;
    /// Bytes free inside the store.
    virtual std::uint32_t FreeSpace() = 0;
    /// Moves blocks down and shortens the store.
    virtual void Compact() = 0;
    virtual void PrintFreeList();
    virtual std::uint32_t GetReadAddress(std::uint32_t id) LORVALE_REQUIRES(GetMutex()) = 0;
    /// Where the block may be written, with room for `size` bytes.  May move the block, whose bytes are then
    /// no longer there.  Raises "storage full" for more than 2 GB or where there is no room, and the block is
    /// then what it was.
    virtual std::uint32_t GetWriteAddress(std::uint32_t id, std::uint32_t size)
        LORVALE_REQUIRES(GetMutex()) = 0;
    /// Bytes of space that the block has, a power of two.
    virtual std::uint32_t GetBlockSize(std::uint32_t id) LORVALE_REQUIRES(GetMutex()) = 0;

    /// Raises "named blocked storage allocated" if the name is taken.
    std::uint32_t AllocateNamedBlock(const char* name);
    /// Allocates if the name is not there.
    std::uint32_t GetNamedBlock(const char* name);
    /// False if the name is not there.
    bool RemoveNamedBlock(const char* name);

    IAMutex* GetMutex() const { return mutex.get(); }
    std::uint32_t GetStorageType() const { return storageType; }
    IAStoreStream* GetStoreStream() const { return storeStream.get(); }
    bool IsOpen() const { return storeStream->IsOpen(); }
    bool IsWritable() const { return storeStream->IsWritable(); }

protected:
    // The stream's operations for subclasses, which do all their stream work through these.
    static void ReadBytes(IAStoreStream* ss, void* bytes, std::uint32_t count) { ss->ReadBytes(bytes, count); }
    static void WriteBytes(IAStoreStream* ss, const void* bytes, std::uint32_t count) {
        ss->WriteBytes(bytes, count);
    }
    static std::uint32_t ReadUInt32(IAStoreStream* ss) { return ss->ReadUInt32(); }
    static void WriteUInt32(IAStoreStream* ss, std::uint32_t value) { ss->WriteUInt32(value); }
    static std::uint8_t ReadByte(IAStoreStream* ss) { return ss->ReadByte(); }
    static void WriteByte(IAStoreStream* ss, std::uint8_t byte) { ss->WriteByte(byte); }
    static void SetPosition(IAStoreStream* ss, std::uint32_t address, std::uint32_t blockSize) {
        ss->SetPosition(address, blockSize);
    }
    static std::uint32_t GetPosition(IAStoreStream* ss) { return ss->GetPosition(); }
    static std::uint32_t Read(IAStoreStream* ss, std::uint32_t address, std::uint8_t* bytes,
                              std::uint32_t count) {
        return ss->Read(address, bytes, count);
    }
    static void Write(IAStoreStream* ss, std::uint32_t address, const std::uint8_t* bytes,
                      std::uint32_t count) {
        ss->Write(address, bytes, count);
    }
    static void SetEOF(IAStoreStream* ss, std::uint32_t length) { ss->SetEOF(length); }
    static std::uint32_t GetEOF(IAStoreStream* ss) { return ss->GetEOF(); }
    static IAMutex* SSMutex(IAStoreStream* ss) { return ss->GetMutex(); }
    static void FlushSS(IAStoreStream* ss) { ss->Flush(); }
    static void SyncSS(IAStoreStream* ss) { ss->Sync(); }
    static void OpenSS(IAStoreStream* ss, bool writable) { ss->Open(writable); }
    static void InitializeSS(IAStoreStream* ss) { ss->Initialize(); }

private:
    // Declared in this order so that the mutex goes before the stream does.
    const std::unique_ptr<IAStoreStream> storeStream;
    const std::uint32_t storageType;
    const std::unique_ptr<IAMutex> mutex;
};

/// A storage of power-of-two blocks on a stream.  Nothing is touched yet.
LORVALE_EXPORT std::unique_ptr<IAStorage> IAMakeStorage(std::unique_ptr<IAStoreStream> stream);
/// The same on a file, which is not touched yet either.
LORVALE_EXPORT std::unique_ptr<IAStorage> MakeFileStorage(const char* path);

/// Whether a commit waits, before and after it switches to the new state, until the device has the bytes.
/// True at the start.  Without it a commit still survives the death of the process, but after a crash of
/// the machine the file may be lost; an index that can be made again may be worth that.
extern LORVALE_EXPORT std::atomic<bool> IASyncOnCommit;

/// How many bytes a storage may spend on pages of its trees: on those that a commit has to write, and on
/// remembering others, so that they need not be read again.  32 MB at the start.  Storages made after a change
/// heed it; with 0 pages are written at once and none is remembered.
extern LORVALE_EXPORT std::atomic<std::size_t> IAPageMemory;

}  // namespace brindle
