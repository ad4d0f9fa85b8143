#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>

#include "lorvale/toolkit/storage.h"

namespace brindle {
namespace {

TEST(IAException, CutsItsTextsOneShortOfTheField) {
    const struct {
        std::size_t length, message, location;
    } rows[] = {{49, 49, 49}, {50, 50, 50}, {51, 51, 49}, {250, 250, 49}, {251, 249, 49}, {5000, 249, 49}};
    for (const auto& row : rows) {
        const std::string text(row.length, 'x');
        IAException exception(text.c_str());
        exception.SetLocation(text.c_str());
        EXPECT_EQ(std::string(exception.What()).size(), row.message);
        EXPECT_EQ(std::string(exception.GetLocation()).size(), row.location);
        exception.SetLocation("appended");
        EXPECT_LE(std::string(exception.GetLocation()).size(), IAException::MaxLocationLength);
    }
}

std::string hookSaw;

TEST(IAException, ReachesTheHookBeforeTheHandler) {
    IASetExceptionHookProc([](const char* message, const char* location, std::int32_t code) {
        hookSaw = std::string(message) + "|" + location + "|" + std::to_string(code);
    });
    const int line = __LINE__ + 1;
    EXPECT_THROW(IAAssertion(line == 0, "some text", StorageFull), IAException);
    IASetExceptionHookProc(nullptr);
    EXPECT_EQ(hookSaw, "some text|RootsTest : " + std::to_string(line) + "|" + std::to_string(0x56534446));
}

class Counted : public IAObject {
public:
    explicit Counted(int& alive) : count(alive) { ++count; }
    ~Counted() override { --count; }

private:
    int& count;
};

TEST(ScopeGuards, FreeOnEveryWayOut) {
    const std::size_t before = IABytesAllocated();
    int alive = 0;
    const auto leave = [&](bool byException) {
        IADeleteOnUnwind one(new Counted(alive));
        IADeleteOnUnwind none(nullptr);
        IADeleteArrayOnUnwind array(IAMalloc(100));
        auto** const pointers = static_cast<IAObject**>(IAMallocSized(3 * sizeof(IAObject*)));
        pointers[0] = new Counted(alive);
        pointers[1] = nullptr;
        pointers[2] = new Counted(alive);
        IADeletePointerArrayOnUnwind all(pointers, 3);
        EXPECT_EQ(alive, 3);
        if (byException) IAFail("on the way out", StoreError);
    };
    leave(false);
    EXPECT_EQ(alive, 0);
    EXPECT_THROW(leave(true), IAException);
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(IABytesAllocated(), before);
}

int hookBlocks = 0;

TEST(IAMalloc, UsesTheHooksAndFailsByException) {
    EXPECT_EQ(IAMalloc(0), nullptr);
    volatile std::size_t tooMuch = std::numeric_limits<std::size_t>::max();  // unseen by the compiler
    EXPECT_THROW(IAMalloc(tooMuch), IAException);

    IAAllocationFunc = [](std::size_t size) { return ++hookBlocks, std::malloc(size); };
    IADeAllocationFunc = [](void* block) { --hookBlocks, std::free(block); };
    void* const plain = IAMalloc(10);
    void* const sized = IAMallocSized(72);
    EXPECT_EQ(hookBlocks, 2);
    IAFree(plain);
    IAFreeSized(sized, 72);
    EXPECT_EQ(hookBlocks, 0);
    {
        const BitArray bits(1000);
        std::uint32_t numbers[] = {3, 1, 2};
        hookBlocks = 0;
        IASort(numbers, 3, 4, TFComponentOrder);
        EXPECT_EQ(hookBlocks, 0);
        EXPECT_EQ(numbers[0], 1u);
        IAAllocationFunc = [](std::size_t) -> void* { return nullptr; };
        EXPECT_THROW(BitArray(1000), IAException);
        EXPECT_THROW(IASort(numbers, 3, 4, TFComponentOrder), IAException);
        ++hookBlocks;  // what the bit array gives back
    }
    EXPECT_EQ(hookBlocks, 0);
    IAAllocationFunc = nullptr;
    IADeAllocationFunc = nullptr;
}

}  // namespace
}  // namespace brindle
