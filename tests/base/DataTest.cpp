#include "lorvale/values/data.h"

#include <gtest/gtest.h>

namespace lorvale {
namespace {

TEST(Data, SlicesShareTheBytesAndOutliveTheWhole) {
    Data slice;
    const std::uint8_t* inside = nullptr;
    {
        const auto whole = Data::copyOf(std::string_view("a longer text than any small buffer holds"));
        inside = whole.bytes() + 2;
        slice = whole.subdata(Range{2, 6});
    }
    EXPECT_EQ(slice.bytes(), inside);
    EXPECT_EQ(slice.view(), "longer");
    EXPECT_EQ(slice.subdata(Range{4, 100}).view(), "er") << "cut off at the end of the slice";
    EXPECT_TRUE(slice.subdata(Range{100, 1}).empty());
}

TEST(ByteBuffer, HandsItsStorageOverWithoutCopying) {
    ByteBuffer buffer(0);
    for (int i = 0; i < 1000; ++i) buffer.append(static_cast<char>('a' + i % 26));
    const auto* const bytes = buffer.bytes();
    const auto data = buffer.data();
    EXPECT_EQ(data.bytes(), bytes);
    EXPECT_EQ(data.size(), 1000u);
    EXPECT_EQ(data[999], 'a' + 999 % 26);
    EXPECT_TRUE(buffer.empty());
    buffer.append("again");
    EXPECT_EQ(buffer.data().view(), "again");
}

TEST(Data, MovedFromValuesAreEmptyAndUsable) {
    auto whole = Data::copyOf(std::string_view("some bytes"));
    Data slice = whole.subdata(Range{5, 5});
    slice = std::move(whole);
    EXPECT_TRUE(whole.empty() && whole.view().data() == nullptr);
    auto& same = slice;
    slice = std::move(same);
    EXPECT_EQ(slice.view(), "some bytes") << "moved into itself";

    ByteBuffer first, second;
    first.append("first");
    second.append("second");
    first = std::move(second);
    EXPECT_TRUE(second.empty());
    second.append("again");
    EXPECT_EQ(first.view(), "second");
    EXPECT_EQ(second.view(), "again");
    first.append(first.view());
    EXPECT_EQ(first.view(), "secondsecond") << "also when it has to grow for it";
    first.truncate(100);
    EXPECT_EQ(first.size(), 12u);
}

}  // namespace
}  // namespace lorvale
