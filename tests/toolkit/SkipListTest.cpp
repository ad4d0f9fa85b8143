#include "lorvale/toolkit/storage/skip_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <vector>

#include "lorvale/toolkit/storage.h"

namespace brindle {
namespace {

/// The heights by the definition: level after level with the bits 22 and 23 of the next number both set.
std::vector<std::uint32_t> heights(std::size_t count) {
    std::vector<std::uint32_t> result;
    for (std::uint32_t seed = 0xFFF84C; result.size() < count;) {
        std::uint32_t height = 1;
        while ((seed = seed * 221 & 0xFFFFFF, (seed & 0xC00000) == 0xC00000)) ++height;
        result.push_back(std::min(height, 16u));
    }
    return result;
}

TEST(SkipList, HasTheSameShapeInEveryRun) {
    constexpr std::uint32_t kCount = 100'000;
    const auto expected = heights(kCount);
    UInt32Set set;
    for (std::uint32_t key = 0; key < kCount; ++key) set.Put(key);
    // The nodes with more than n levels are exactly those that level n links.
    for (std::uint32_t level = 0; level < SL_MaxHeight; ++level) {
        UInt32Set::Finger start;
        set.FingerStart(start);
        const auto* node = UInt32Set::NodeLevels(start[level])[level];
        for (std::uint32_t key = 0; key < kCount; ++key) {
            if (expected[key] <= level) continue;
            ASSERT_NE(node, nullptr);
            ASSERT_EQ(UInt32Set::NodeKey(node), key);
            node = UInt32Set::NodeLevels(node)[level];
        }
        ASSERT_EQ(node, nullptr) << "level " << level;
    }
}

TEST(SkipList, AgreesWithAnOrderedMap) {
    const std::size_t before = IABytesAllocated();
    {
        std::mt19937 random(7);
        std::map<std::uint32_t, void*> model;
        UInt32VoidMap list;
        int values[8];
        for (int step = 0; step < 20'000; ++step) {
            const auto key = static_cast<std::uint32_t>(random() % 300);
            void* const value = &values[random() % 8];
            UInt32VoidRecord old{};
            const auto dice = random() % 5;
            if (dice < 2) {
                ASSERT_EQ(list.Put(key, value), !model.insert_or_assign(key, value).second);
            } else if (dice == 2) {
                ASSERT_EQ(list.Remove(key, &old), model.erase(key) == 1);
            } else if (dice == 3) {
                ASSERT_EQ(list.Pop(&old), !model.empty());
                if (!model.empty()) model.erase(model.begin());
            } else {  // at a finger: a run of new keys in order, without a search
                const std::uint32_t first = 1000 + static_cast<std::uint32_t>(step) * 4;
                UInt32VoidMap::Finger finger;
                ASSERT_EQ(list.SetFinger(first, finger), nullptr);
                for (std::uint32_t next = first; next < first + 2; ++next) {
                    list.Insert({next, value}, finger);
                    model[next] = value;
                }
                list.FingerStart(finger);
                list.RemoveNode(list.FingeredNode(finger), finger);
                model.erase(model.begin());
            }
            ASSERT_EQ(list.Count(), model.size());
            ASSERT_EQ(list.Get(key), model.contains(key) ? model[key] : nullptr);
            if (step % 50 != 0) continue;
            const auto* node = list.First();
            const UInt32VoidMap::Node* previous = nullptr;
            for (const auto& [modelKey, modelValue] : model) {
                ASSERT_EQ(UInt32VoidMap::NodeKey(node), modelKey);
                ASSERT_EQ(UInt32VoidMap::NodeValue(node), modelValue);
                ASSERT_EQ(list.PreviousNode(node), previous);
                previous = node;
                node = list.Next(node);
            }
            ASSERT_EQ(node, nullptr);
            ASSERT_EQ(list.LastNode(), previous);
        }
    }
    EXPECT_EQ(IABytesAllocated(), before);
}

TEST(IASort, IsStableForElementsOfAnySize) {
    std::mt19937 random(3);
    for (const std::uint32_t size : {2u, 4u, 7u, 12u}) {
        for (const std::uint32_t count : {0u, 1u, 2u, 3u, 500u}) {
            // An element is its key, then its place in the input, then padding.
            std::vector<std::uint8_t> bytes(std::size_t{size} * count, 0xEE);
            std::vector<std::array<std::uint8_t, 2>> expected;
            for (std::uint32_t i = 0; i < count; ++i) {
                bytes[i * size] = static_cast<std::uint8_t>(random() % 20);
                bytes[i * size + 1] = static_cast<std::uint8_t>(i);
                expected.push_back({bytes[i * size], bytes[i * size + 1]});
            }
            std::stable_sort(expected.begin(), expected.end(),
                             [](const auto& a, const auto& b) { return a[0] < b[0]; });
            IASort(bytes.data(), count, size, [](const void* a, const void* b) {
                return *static_cast<const std::uint8_t*>(a) - *static_cast<const std::uint8_t*>(b);
            });
            for (std::uint32_t i = 0; i < count; ++i) {
                ASSERT_EQ(bytes[i * size], expected[i][0]);
                ASSERT_EQ(bytes[i * size + 1], expected[i][1]);
                ASSERT_TRUE(size == 2 || bytes[i * size + size - 1] == 0xEE);
            }
        }
    }
    const std::uint32_t low = 1, high = 0x80000000;
    EXPECT_EQ(TFComponentOrder(&low, &high), -1) << "as unsigned numbers";
}

TEST(BitArray, AgreesWithABoolVectorThroughEveryLength) {
    std::mt19937 random(11);
    std::vector<bool> model;
    BitArray bits;
    EXPECT_EQ(bits.StoreSize(), 8u);
    for (int step = 0; step < 3000; ++step) {
        const auto length = static_cast<std::uint32_t>(random() % (step % 10 == 0 ? 2000 : 100));
        model.resize(length);
        bits.SetLength(length);
        for (std::uint32_t i = 0; i < length; i += 1 + static_cast<std::uint32_t>(random() % 50)) {
            model[i] = random() % 3 != 0;
            model[i] ? bits.Set(i) : bits.Clear(i);
        }
        ASSERT_EQ(bits.Count(), std::count(model.begin(), model.end(), true));
        for (std::uint32_t i = 0; i < length; ++i) ASSERT_EQ(bits.Get(i), model[i]) << i << " of " << length;
        ASSERT_EQ(bits.StoreSize(), (length / 32 + 1) * 4 + 4);
    }
}

}  // namespace
}  // namespace brindle
