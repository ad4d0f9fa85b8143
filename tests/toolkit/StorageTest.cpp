#include <gtest/gtest.h>

#include "tests/support/FailureText.h"
#include "tests/support/StoredForm.h"

namespace brindle {
namespace {

using testing::failureOf;
using testing::readBlock;
using testing::writeBlock;

class StorageTest : public ::testing::Test {
protected:
    StorageTest() { storage->Initialize(); }

    std::unique_ptr<IAStorage> onTheSameBytes() {
        return IAMakeStorage(std::make_unique<testing::MemoryStoreStream>(bytes));
    }
    std::uint32_t written(std::uint32_t size) {
        const auto id = storage->Allocate();
        writeBlock(*storage, id, std::string(size, 'w'));
        return id;
    }
    std::uint32_t addressOf(std::uint32_t id) { return storage->GetReadAddress(id); }

    std::shared_ptr<testing::Bytes> bytes = std::make_shared<testing::Bytes>();
    std::unique_ptr<IAStorage> storage = onTheSameBytes();
};

TEST_F(StorageTest, NeverWritesOverTheCommittedState) {
    const auto id = written(100);
    const auto first = addressOf(id);
    writeBlock(*storage, id, std::string(128, 'x'));
    EXPECT_EQ(addressOf(id), first) << "the same size class in the same span";
    writeBlock(*storage, id, std::string(129, 'x'));
    EXPECT_NE(addressOf(id), first) << "another size class";
    EXPECT_EQ(addressOf(written(100)), first) << "what no commit has seen is free at once";
    storage->Commit();

    const auto committed = addressOf(id);
    const auto timesReused = [&] {
        int count = 0;
        for (int i = 0; i < 20; ++i) count += addressOf(written(129)) == committed;
        return count;
    };
    writeBlock(*storage, id, std::string(129, 'y'));
    EXPECT_NE(addressOf(id), committed);
    EXPECT_EQ(timesReused(), 0);
    storage->Commit();
    EXPECT_EQ(timesReused(), 1) << "free for use after the next commit";
}

TEST_F(StorageTest, HandsFreedIDsOutAgain) {
    const auto one = written(1);
    const auto two = written(1);
    const auto unwritten = storage->Allocate();
    const auto space = storage->FreeSpace();
    storage->Deallocate(unwritten);
    EXPECT_EQ(storage->FreeSpace(), space);
    storage->Deallocate(one);
    storage->Deallocate(two);
    EXPECT_EQ(storage->Allocate(), two);
    EXPECT_EQ(storage->Allocate(), one);
    EXPECT_EQ(storage->Allocate(), unwritten);
    EXPECT_EQ(storage->Allocate(), unwritten + 1);
}

TEST_F(StorageTest, KeepsNamesApart) {
    const auto id = storage->AllocateNamedBlock("name");
    EXPECT_EQ(failureOf([&] { storage->AllocateNamedBlock("name"); }), "VSNT named blocked storage allocated");
    EXPECT_EQ(storage->GetNamedBlock("name"), id);
    EXPECT_NE(storage->GetNamedBlock("other"), id);
    EXPECT_FALSE(storage->RemoveNamedBlock("absent"));
    EXPECT_TRUE(storage->RemoveNamedBlock("name"));
    EXPECT_EQ(storage->TOC_Get("name"), 0u);
    EXPECT_EQ(storage->Allocate(), id) << "the block went with the name";

    storage->TOC_Set(std::string(254, 'n').c_str(), id);
    storage->Commit();
    storage->TOC_Set(std::string(255, 'n').c_str(), id);
    EXPECT_EQ(failureOf([&] { storage->Commit(); }), "QFLT key too big");
    const auto reopened = onTheSameBytes();
    reopened->Open(false);
    EXPECT_EQ(reopened->TOC_Get(std::string(254, 'n').c_str()), id);
}

TEST_F(StorageTest, NamesItsFailures) {
    const auto unwritten = storage->Allocate();
    const auto inNewSpace = storage->Allocate();
    const auto freed = written(10);
    storage->Deallocate(freed);
    storage->Commit();
    writeBlock(*storage, inNewSpace, std::string(10, 'w'));
    const auto closed = onTheSameBytes();
    const auto readOnly = onTheSameBytes();
    readOnly->Open(false);
    const struct {
        const char* why;
        std::function<void()> call;
        const char* failure;
    } rows[] = {
        {"closed", [&] { closed->Allocate(); }, "VSNO storage not open"},
        {"closed", [&] { closed->TOC_Get("x"); }, "VSNO storage not open"},
        {"closed", [&] { closed->Compact(); }, "VSNO storage not open"},
        {"closed", [&] { closed->GetReadAddress(1); }, "VSNO storage not open"},
        {"read-only", [&] { readOnly->Commit(); }, "VSNW storage not writable"},
        {"read-only", [&] { readOnly->GetWriteAddress(1, 1); }, "VSNW storage not writable"},
        {"the system block", [&] { storage->Deallocate(0); }, "VSBI invalid storage blockID"},
        {"no ID", [&] { storage->Deallocate(99); }, "VSBI out-of-range id"},
        {"given back twice", [&] { storage->Deallocate(freed); }, "VSBI unallocated block id"},
        {"the system block", [&] { storage->GetReadAddress(0); }, "VSBI id out of range"},
        {"no ID", [&] { storage->GetReadAddress(99); }, "VSBI id out of range"},
        {"unwritten", [&] { storage->GetReadAddress(unwritten); }, "VSBI unallocated or unwritten block"},
        {"the system block", [&] { storage->GetWriteAddress(0, 1); }, "VSBI null id"},
        {"no ID", [&] { storage->GetWriteAddress(99, 1); }, "VSBI out-of-range id"},
        {"the end of the free chain", [&] { storage->GetWriteAddress(freed, 1); }, "VSBI unallocated block id"},
        {"too big", [&] { storage->GetWriteAddress(unwritten, 0x80000001); }, "VSDF storage full"},
        {"too big", [&] { storage->GetWriteAddress(inNewSpace, 0xFFFFFFFF); }, "VSDF storage full"},
        {"open", [&] { storage->Initialize(); }, "VSAO storage already open"},
        {"open", [&] { readOnly->Initialize(); }, "VSAO storage already open"},
    };
    for (const auto& row : rows) EXPECT_EQ(failureOf(row.call), row.failure) << row.why;
    EXPECT_EQ(storage->GetBlockSize(unwritten), 1u);
    EXPECT_EQ(readBlock(*storage, inNewSpace, 10), std::string(10, 'w'));
    EXPECT_EQ(readOnly->FreeSpace(), 0u);
    storage->Commit();
    EXPECT_TRUE(VerifyStorage(*storage->GetStoreStream()).Sound()) << "no refusal has changed anything";
}

TEST_F(StorageTest, WithoutRoomABlockStaysWhatItWas) {
    const auto big = storage->Allocate();
    const auto bigAddress = storage->GetWriteAddress(big, 1u << 30);
    const auto small = written(10);
    storage->Commit();
    EXPECT_EQ(failureOf([&] { storage->GetWriteAddress(small, 1u << 30); }), "VSDF storage full");
    EXPECT_EQ(failureOf([&] { storage->GetWriteAddress(big, 1u << 30); }), "VSDF storage full");
    EXPECT_EQ(addressOf(big), bigAddress);
    EXPECT_EQ(readBlock(*storage, small, 10), std::string(10, 'w'));
    storage->Commit();
    EXPECT_TRUE(VerifyStorage(*storage->GetStoreStream()).Sound());
    storage->Deallocate(big);
    storage->Commit();
    EXPECT_EQ(storage->GetWriteAddress(small, 1u << 30), bigAddress);
}

/// The estimate of the system block's size falls short when it is cut from a large free block while the smaller
/// sizes are those freed since the last commit: each of these lists gets one address more than was estimated.
TEST_F(StorageTest, CommitsWhenTheSystemBlockOutgrowsItsEstimate) {
    const auto ofEachSize = [&](std::uint32_t from, std::uint32_t to) {
        std::vector<std::uint32_t> ids;
        for (std::uint32_t logSize = from; logSize <= to; ++logSize) {
            ids.push_back(storage->Allocate());
            storage->GetWriteAddress(ids.back(), 1u << logSize);
        }
        return ids;
    };
    for (const char letter : {'a', 'b', 'c'}) storage->AllocateNamedBlock(std::string(245, letter).c_str());
    const auto early = ofEachSize(12, 23);
    storage->Commit();  // cuts the system block from the smallest that is left, of log size 24
    EXPECT_EQ(storage->GetBlockSize(0), 2048u);
    ofEachSize(11, 23);
    ofEachSize(11, 11);
    for (const auto id : early) storage->Deallocate(id);
    ASSERT_EQ(failureOf([&] { storage->Commit(); }), "");
    EXPECT_EQ(storage->GetBlockSize(0), 4096u) << "else this test has lost its point";
    EXPECT_TRUE(VerifyStorage(*storage->GetStoreStream()).Sound());
}

TEST_F(StorageTest, CompactingShortensTheStore) {
    std::vector<std::uint32_t> ids;
    for (std::uint32_t i = 0; i < 60; ++i) ids.push_back(written(1000 + i * 100));
    storage->Commit();
    for (std::size_t i = 0; i < 50; ++i) storage->Deallocate(ids[i]);
    storage->Commit();
    const auto before = storage->TotalSpace();
    storage->Compact();
    EXPECT_LT(storage->TotalSpace(), before);
    EXPECT_EQ(bytes->size(), storage->TotalSpace());
    EXPECT_TRUE(VerifyStorage(*storage->GetStoreStream()).Sound());
}

TEST_F(StorageTest, AnOverrunOfABlockIsRaisedByItsDestructor) {
    const std::string text(33, 'x');
    const auto overrun = [&text](IAStorage& in, bool failsToo) {
        IAOutputBlock block(&in, in.Allocate(), 32);
        block.WriteBuffer(text.data(), 33);
        if (failsToo) IAFail("the first", IndexInvalid);
    };
    EXPECT_EQ(failureOf([&] { overrun(*storage, false); }), "VSPB not past the blockend");
    EXPECT_EQ(failureOf([&] { storage->Commit(); }), "VSPB not past the blockend")
        << "and nothing is committed";
    const auto reopened = onTheSameBytes();
    reopened->Open(true);
    EXPECT_EQ(failureOf([&] { overrun(*reopened, true); }), "VIIV the first")
        << "silent with another exception on its way";
}

TEST(StoredNumbers, RoundTripAndAreReadToTheLastByteAndNoFurther) {
    struct Number {
        std::uint32_t value, size;
        std::uint32_t StoreSize() const { return VInt32Size(value); }
        void Store(IAOutputBlock* output) const { VInt32Write(value, output); }
    };
    const auto read = [](IAInputBlock* block) { return VInt32Read(block); };
    const Number rows[] = {{0, 1},        {127, 1},      {128, 2},       {16383, 2},      {16384, 3},
                           {0x1FFFFF, 3}, {0x200000, 4}, {0xFFFFFFF, 4}, {0x10000000, 5}, {0xFFFFFFFF, 5}};
    for (const auto& row : rows) {
        const std::string form = testing::storedForm(row);
        EXPECT_EQ(form.size(), row.size);
        EXPECT_EQ(testing::withBlockOf(form, read), row.value);
    }
    // Damage: more bytes than any number has.  The bits above the 32nd are dropped.
    EXPECT_EQ(testing::withBlockOf("\x81\xFF\x80\x80\x80\xFF\xFF\xFF\x01", read), 1u + (0x7Fu << 7));
    const std::uint8_t inMemory[] = {0x80, 0x80, 0x80, 0x80, 0x10, 0xAC, 0x02, 0x80};
    std::span<const std::uint8_t> rest(inMemory);
    EXPECT_EQ(VInt32Read(rest), 0u) << "bits above the 32nd are dropped";
    EXPECT_EQ(VInt32Read(rest), 300u);
    EXPECT_EQ(failureOf([&] { VInt32Read(rest); }), "VSPB buffer position passed blockEnd");

    BitArray bits(40), back;
    bits.Set(0);
    bits.Set(39);
    const auto restore = [&](IAInputBlock* block) { back.Restore(block); };
    testing::withBlockOf(testing::storedForm(bits), restore);
    EXPECT_EQ(back.Length(), 40u);
    EXPECT_TRUE(back.Get(39));
    EXPECT_EQ(failureOf([&] { testing::withBlockOf("\xFF\xFF\xFF\xFF", restore); }),
              "VSIV bit array longer than its block");
}

}  // namespace
}  // namespace brindle
