#include "tests/support/FaultyDisk.h"

#include <algorithm>

namespace brindle::testing {

namespace {

void apply(Bytes& image, std::uint32_t address, const std::uint8_t* bytes, std::size_t count) {
    if (image.size() < address + count) image.resize(address + count);
    std::copy_n(bytes, count, image.begin() + address);
}

}  // namespace

FaultyDisk::FaultyDisk(Bytes bytes) : safe(std::move(bytes)) {
    *seen = safe;
}

void FaultyDisk::CheckAlive() const {
    if (writes > dieAtWrite) throw DiskDied{};
}

void FaultyDisk::Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) {
    ++writes;
    if (writes == dieAtWrite + 1)
        unsafe.push_back({address, false, Bytes(bytes, bytes + count)});  // it may have begun
    CheckAlive();
    IAAssertion(writes < failAtWrite || writes - failAtWrite >= failures, "unable to extend store is full",
                StoreFull);
    IAAssertion(address <= MemoryStoreStream::kLimit, "unable to extend store is full", StoreFull);
    unsafe.push_back({address, false, Bytes(bytes, bytes + count)});
    apply(*seen, address, bytes, count);
}

void FaultyDisk::SetEOF(std::uint32_t length) {
    CheckAlive();
    unsafe.push_back({length, true, {}});
    seen->resize(length);
}

void FaultyDisk::Sync() {
    CheckAlive();
    ++syncs;
    safe = *seen;
    unsafe.clear();
}

Bytes FaultyDisk::AfterCrash(std::mt19937& random) const {
    Bytes image = safe;
    auto changes = unsafe;
    if (random() % 2 == 0) std::shuffle(changes.begin(), changes.end(), random);
    const auto lossRate = random() % 4;  // of 4: sometimes nothing is lost
    for (const Change& change : changes) {
        if (change.isLength) {
            if (random() % 4 >= lossRate) image.resize(change.address);
            continue;
        }
        const bool torn = random() % 2 == 0;
        const bool lost = random() % 4 < lossRate;
        for (std::size_t at = 0; at < change.bytes.size();) {
            const std::size_t piece =
                std::min<std::size_t>(kSector - (change.address + at) % kSector, change.bytes.size() - at);
            if (torn ? random() % 4 >= lossRate : !lost)
                apply(image, change.address + static_cast<std::uint32_t>(at), change.bytes.data() + at, piece);
            at += piece;
        }
    }
    return image;
}

void FaultyStoreStream::Flush() {
    disk->CheckAlive();
    MemoryStoreStream::Flush();
}

}  // namespace brindle::testing
