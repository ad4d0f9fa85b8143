// Arbitrary bytes as a storage file.  Only IAException comes out of it; and what the checker calls sound opens,
// shows its blocks, takes new ones, and is still sound after a commit.
#include "fuzz/FuzzTarget.h"
#include "lorvale/toolkit/storage.h"
#include "tests/support/FailureText.h"
#include "tests/support/MemoryStoreStream.h"

namespace {

using lorvale::fuzz::require;
using namespace brindle;
using brindle::testing::Bytes;
using brindle::testing::failureOf;
using brindle::testing::MemoryStoreStream;

constexpr std::uint32_t kBlocksTried = 64;

std::unique_ptr<IAStorage> storageOn(const std::shared_ptr<Bytes>& bytes) {
    return IAMakeStorage(std::make_unique<MemoryStoreStream>(bytes));
}

void readBlock(IAStorage& storage, std::uint32_t id) {
    IAInputBlock block(&storage, id);
    BitArray bits;
    failureOf([&] { bits.Restore(&block); });
    while (block.Remaining() > 0) VInt32Read(&block);
}

void writeBlock(IAStorage& storage, std::uint32_t id) {
    IAOutputBlock block(&storage, id, 40 + id % 200);
    for (std::uint32_t i = 0; i < 40 + id % 200; ++i) block.WriteByte(static_cast<std::uint8_t>(id));
}

bool holdsWhatWasWritten(IAStorage& storage, std::uint32_t id) {
    IAInputBlock block(&storage, id);
    for (std::uint32_t i = 0; i < 40 + id % 200; ++i)
        if (block.ReadByte() != static_cast<std::uint8_t>(id)) return false;
    return true;
}

}  // namespace

LORVALE_FUZZ_TARGET(input) {
    const auto bytes = std::make_shared<Bytes>(input.begin(), input.end());
    MemoryStoreStream checked(bytes);
    checked.Open(false);
    const bool sound = VerifyStorage(checked).Sound();

    const auto readOnly = storageOn(bytes);
    if (failureOf([&] { readOnly->Open(false); }).empty())
        for (std::uint32_t id = 0; id < kBlocksTried; ++id) failureOf([&] { readBlock(*readOnly, id); });

    const auto storage = storageOn(bytes);
    const auto failure = failureOf([&] { storage->Open(true); });
    require(failure.empty() || !sound);
    require(std::ranges::equal(*bytes, lorvale::fuzz::bytesOf(input)));
    if (!failure.empty()) return;

    std::string written(kBlocksTried, '\0');
    for (std::uint32_t id = 1; id < kBlocksTried; id += 3)
        written[id] = failureOf([&] { writeBlock(*storage, id); }).empty();
    failureOf([&] { storage->GetNamedBlock("new"); });
    failureOf(
        [&] { storage->RemoveNamedBlock("apples"); });  // block 2 of a seed, which nothing above has written
    const bool committed = failureOf([&] { storage->Commit(); }).empty();
    failureOf([&] { storage->Compact(); });
    if (!sound || !committed) return;
    const auto reopened = storageOn(bytes);
    reopened->Open(false);
    require(VerifyStorage(*reopened->GetStoreStream()).Sound());
    for (std::uint32_t id = 1; id < kBlocksTried; ++id)
        require(written[id] == '\0' || holdsWhatWasWritten(*reopened, id));
}
