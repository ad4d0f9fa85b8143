#include <gtest/gtest.h>

#include "lorvale/message/flags.h"
#include "lorvale/values/property_list.h"

namespace lorvale {
namespace {

/// Each named flag sets and reads its own bit, and its own entry once there is a dictionary.
TEST(MessageFlags, BitsAndDictionaryFollowTheSetters) {
    const struct {
        std::uint32_t bit;
        std::string_view key;
        bool (MessageFlags::*read)() const;
        void (MessageFlags::*set)(bool);
        bool inverted;
    } rows[] = {
        {1, "MessageIsUnread", &MessageFlags::isRead, &MessageFlags::setRead, true},
        {2, "MessageIsDeleted", &MessageFlags::isDeleted, &MessageFlags::setDeleted, false},
        {4, "MessageWasRepliedTo", &MessageFlags::wasRepliedTo, &MessageFlags::setRepliedTo, false},
        {8, "MessageIsEncrypted", &MessageFlags::isEncrypted, &MessageFlags::setEncrypted, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        MessageFlags flags;
        EXPECT_EQ((flags.*row.read)(), row.inverted);  // a fresh message is read, and nothing else
        (flags.*row.set)(!row.inverted);
        EXPECT_EQ(flags.flagBits(), row.bit);
        EXPECT_EQ(flags.objectForKey(row.key), "Yes");
        (flags.*row.set)(row.inverted);
        flags.setObject("yES", row.key);
        EXPECT_EQ((flags.*row.read)(), !row.inverted);
        EXPECT_EQ(flags.flagBits(), 0u);  // the dictionary is the truth now, and the bits stay
        flags.setObject("true", row.key);
        EXPECT_EQ((flags.*row.read)(), row.inverted);
    }
}

TEST(MessageFlags, PriorityIsTextInTheDictionary) {
    MessageFlags flags;
    flags.setPriority(5);
    EXPECT_EQ(flags.objectForKey(MessagePriorityLevel), "5");
    for (const auto& [text, number] : {std::pair<const char*, std::uint32_t>{" 7 high", 7},
                                       {"high", 0},
                                       {"-1", 0xFFFFFFFF},
                                       {"+7", 7},
                                       {"+-7", 0},
                                       {"99999999999", 0xFFFFFFFF}}) {
        flags.setObject(text, MessagePriorityLevel);
        EXPECT_EQ(flags.priority(), number) << text;
    }
    flags.setUserFlags(std::nullopt);
    EXPECT_EQ(flags.priority(), 5u);
}

TEST(MessageFlags, CopySharesTheDictionary) {
    MessageFlags flags(MessageFlags::kUnread, 2);
    const auto copy = flags.copy();
    copy->setDeleted(true);
    EXPECT_TRUE(flags.isDeleted());
    EXPECT_EQ(flags.flagBits(), MessageFlags::kUnread);
}

TEST(MessageFlags, ArchiveKeepsItsThreeValuesInOrder) {
    MessageFlags flags(MessageFlags::kDeleted | MessageFlags::kEncrypted, 3);
    EXPECT_EQ(toPropertyList(flags), PropertyList(PropertyList::Array{false, 10, 3}));
    flags.setObject("red", "Colour");
    const auto xml = toPropertyList(flags).xml();
    const auto back =
        messageFlagsFromPropertyList(PropertyList::parse(Data::copyOf(xml)).value_or(PropertyList()));
    EXPECT_EQ(back->userFlags(), flags.userFlags());
    EXPECT_EQ(back->flagBits(), 10u);
    EXPECT_EQ(back->priority(), 3u);

    for (const auto& odd : {PropertyList(), PropertyList("x"), PropertyList(PropertyList::Array{1, "x", -5})}) {
        EXPECT_EQ(messageFlagsFromPropertyList(odd)->flagBits(), 0u);
    }
}

}  // namespace
}  // namespace lorvale
