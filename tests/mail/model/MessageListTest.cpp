#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <set>

#include "lorvale/message.h"
#include "lorvale/values/range.h"

namespace lorvale {
namespace {

using namespace ::testing;
using Messages = std::vector<std::shared_ptr<Message>>;

static_assert(std::ranges::random_access_range<MessageList> && std::ranges::sized_range<MessageList>);

Messages newMessages(std::size_t count) {
    Messages messages(count);
    std::ranges::generate(messages, [] { return std::make_shared<Message>(); });
    return messages;
}

TEST(MessageList, IsAValueThatHoldsNoNull) {
    const auto m = newMessages(3);
    MessageList list{m[0], nullptr, m[1]};
    EXPECT_THAT(list, ElementsAre(m[0], m[1]));
    EXPECT_THAT(MessageList(Messages{nullptr, m[2]}), ElementsAre(m[2]));
    EXPECT_TRUE((MessageList{nullptr}.empty()));
    const auto moved = std::move(list);
    EXPECT_EQ(list.size(), 0u);  // NOLINT: what moving leaves is a promise
    EXPECT_THAT(list.appending(moved), ElementsAre(m[0], m[1]));
    EXPECT_THAT(list.removing(moved), IsEmpty());
    EXPECT_EQ(list.indexOf(*m[0]), kNotFound);
    EXPECT_THAT(moved.removing({m[0], m[2]}), ElementsAre(m[1]));
    EXPECT_EQ(moved, (MessageList{m[0], m[1]}));
    EXPECT_NE(moved, (MessageList{m[1], m[0]}));
    EXPECT_EQ(std::ranges::find(moved, m[1]) - moved.begin(), 1);
}

// Sizes about the ends of pieces, and lists that were handed out before stay what they were.
TEST(MessageList, AgreesWithAVectorThroughRandomChanges) {
    std::mt19937 random(7);
    Messages model;
    MessageList list;
    for (int step = 0; step < 150; ++step) {
        const auto earlier = list;
        const auto before = model;
        if (random() % 3 != 0) {
            const auto more = newMessages(random() % 5 == 0 ? random() % 600 : random() % 3);
            model.insert(model.end(), more.begin(), more.end());
            list = list.appending(more);
        } else if (!model.empty()) {
            Messages gone;
            std::ranges::sample(model, std::back_inserter(gone), static_cast<int>(random() % 40), random);
            const std::set<std::shared_ptr<Message>> set(gone.begin(), gone.end());
            std::erase_if(model, [&](const auto& message) { return set.contains(message); });
            list = list.removing(gone);
        }
        ASSERT_TRUE(std::ranges::equal(list, model)) << "step " << step;
        ASSERT_TRUE(std::ranges::equal(earlier, before)) << "step " << step;
        for (int asked = 0; asked < 20 && !model.empty(); ++asked) {
            const auto place = random() % model.size();
            ASSERT_EQ(list.indexOf(*model[place]), place) << "step " << step;
            ASSERT_EQ(earlier.indexOf(*model[place]) != kNotFound,
                      std::ranges::count(before, model[place]) > 0);
        }
    }
    EXPECT_GT(model.size(), 1000u);
}

TEST(MessageList, SharesWhatItCan) {
    const MessageList list(newMessages(10'000));
    const auto longer = list.appending({std::make_shared<Message>()});
    const auto shared = [&](const MessageList& other) {
        std::size_t count = 0;
        for (std::size_t i = 0; i < list.size(); ++i) count += &list[i] == &other[i] ? 1U : 0U;
        return count;
    };
    EXPECT_GT(shared(longer), 9'700u);
    EXPECT_GT(shared(longer.removing({list[9'000]})), 8'700u);
}

// Twice the size takes about twice the time, from either end: with a search from the front this would take
// minutes.
TEST(MessageList, FindsEachOfManyPlacesAtOnce) {
    const MessageList list(newMessages(40'000));
    auto backwards = list.toVector();
    std::ranges::reverse(backwards);
    const MessageList reversed(backwards), shorter = list.removing({list[0], list[500]});
    for (std::size_t i = list.size(); i-- > 0;) {
        ASSERT_EQ(list.indexOf(*list[i]), i);
        ASSERT_EQ(reversed.indexOf(*list[i]), list.size() - 1 - i);
        ASSERT_EQ(shorter.indexOf(*list[i]), i > 500 ? i - 2 : i == 0 || i == 500 ? kNotFound : i - 1);
    }
}

}  // namespace
}  // namespace lorvale
