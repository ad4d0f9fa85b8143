#pragma once
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <filesystem>

#include "lorvale/toolkit/storage/stream.h"
#include "tests/support/MemoryStoreStream.h"
#include "tests/support/TestSupport.h"

namespace brindle::testing {

/// How a KilledProcess ends: no other way of ending is expected.
enum : int { kKilled = 40, kAlive = 41 };

/// A file, in a process that ends in the middle of its n-th write.
class KillingStream : public UFSStoreStream {
public:
    KillingStream(const char* path, int writesLeft) : UFSStoreStream(path), left(writesLeft) {}
    void Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) override {
        if (left-- > 0) return UFSStoreStream::Write(address, bytes, count);
        if (count > IADiskBlockSize / 2) UFSStoreStream::Write(address, bytes, count / 2);
        ::_exit(kKilled);
    }

private:
    int left;
};

/// What a process leaves of a file, and how far it says it came.
class KilledProcess {
public:
    KilledProcess() {
        void* const memory = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) throw std::bad_alloc();
        progress = new (memory) std::atomic<std::size_t>(0);
    }
    ~KilledProcess() { ::munmap(progress, 4096); }
    KilledProcess(const KilledProcess&) = delete;
    KilledProcess& operator=(const KilledProcess&) = delete;

    std::filesystem::path Path() const { return folder / "store"; }
    Bytes File() const {
        const auto bytes = lorvale::testing::readFile(Path());
        return Bytes(bytes.begin(), bytes.end());
    }
    /// Runs `life(stream, progress)` in a process of its own, on the file, which is killed when so many writes
    /// have gone through.  False if it came to its end before.
    template <class Life>
    bool Run(int writesLeft, Life life) {
        *progress = 0;
        const int end = lorvale::testing::inChild([&] {
            life(std::make_unique<KillingStream>(Path().c_str(), writesLeft), *progress);
            return kAlive;
        });
        EXPECT_TRUE(end == kKilled || end == kAlive) << end;
        return end == kKilled;
    }
    std::size_t Progress() const { return *progress; }

private:
    const lorvale::testing::TemporaryFolder folder;
    std::atomic<std::size_t>* progress;
};

}  // namespace brindle::testing
