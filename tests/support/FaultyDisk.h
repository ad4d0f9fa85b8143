#pragma once
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "tests/support/MemoryStoreStream.h"

namespace brindle::testing {

/// Thrown by everything a stream does after its disk has died.  Not an IAException: nobody may catch it.
struct DiskDied {};

/// A disk that fails on demand, and knows what would be left of it after a crash.
///
/// What a program has written it reads again, but only a sync makes it safe.  After a crash each write since
/// the last sync is there, or lost, or torn at the edges of sectors, and they may have come in any order.  One
/// sector of 512 bytes is never torn: the header of a storage relies on that, as every journal does.
class FaultyDisk {
public:
    static constexpr std::uint32_t kSector = 512;

    std::shared_ptr<Bytes> seen = std::make_shared<Bytes>();  // what the running program reads
    std::uint64_t dieAtWrite = UINT64_MAX;                    // after that many writes the disk is dead
    std::uint64_t failAtWrite = UINT64_MAX;  // from that number on so many fail, then the disk is well again
    std::uint64_t failures = 0;
    std::uint64_t writes = 0;  // so far
    std::uint64_t syncs = 0;

    /// Starts as a disk that holds the bytes safely.
    explicit FaultyDisk(Bytes bytes = {});

    void Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count);
    void SetEOF(std::uint32_t length);
    void Sync();
    /// Raises if the disk is dead.
    void CheckAlive() const;
    /// What one of the possible crashes would leave now.
    Bytes AfterCrash(std::mt19937& random) const;

private:
    struct Change {
        std::uint32_t address;  // or the new length
        bool isLength;
        Bytes bytes;
    };
    Bytes safe;
    std::vector<Change> unsafe;
};

class FaultyStoreStream : public MemoryStoreStream {
public:
    explicit FaultyStoreStream(std::shared_ptr<FaultyDisk> onDisk)
        : MemoryStoreStream(onDisk->seen), disk(std::move(onDisk)) {}
    void Initialize() override { SetEOF(0); }
    void Flush() override;
    void SetEOF(std::uint32_t length) override { disk->SetEOF(length); }
    void Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) override {
        disk->Write(address, bytes, count);
    }
    void Sync() override { disk->Sync(); }

private:
    std::shared_ptr<FaultyDisk> disk;
};

}  // namespace brindle::testing
