#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "lorvale/values/range.h"
#include "mail/stores/MessageSort.h"
#include "tests/support/ListStore.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;

TEST(StoreSorting, AgreesWithTheComparisons) {
    std::mt19937 random(11);
    const auto one = [&](std::initializer_list<const char*> lines) {
        return std::string(std::data(lines)[random() % lines.size()]);
    };
    const TemporaryFolder folder;
    const auto store = ListStore::initWithPath(folder.path().string());
    std::vector<std::shared_ptr<Message>> messages;
    for (int i = 0; i < 300; ++i) {
        messages.push_back(
            listed(one({"", "From a Thu Aug 22 12:46:23 2002\n", "From a Thu Aug 22 12:46:24 2002\n"}) +
                       one({"", "From: Zoe <a@x>\n", "From: zoe <b@x>\n",
                            "From: \xC3\xA4"
                            "da\n",
                            "From: <q@x>\n"}) +
                       one({"", "Subject:\n", "Subject: Re: tea\n", "Subject: TEA\n", "Subject: fwd: tea\n",
                            "Subject: Cake\n"}) +
                       "Date: Thu, 22 Aug 2002 12:46:2" + std::to_string(random() % 3) + " +0000\n\n",
                   0, static_cast<std::uint32_t>(random() % 5 + 1)));
    }
    store->fill(messages);
    const std::pair<std::string_view, int (*)(Message&, Message&, const MessageStore&)> orders[] = {
        {MessageStoreSortByTitle, _compareMsgsBySubject},
        {MessageStoreSortByAuthor, _compareMsgsBySender},
        {MessageStoreSortBySize, _compareMsgsBySize},
        {MessageStoreSortByCreationDate, _compareMsgsByDate},
    };
    for (const auto& [name, compare] : orders) {
        SCOPED_TRACE(name);
        store->headerReads = 0;
        store->setSortOrder(name);
        EXPECT_LE(store->headerReads, 300) << "each message is read once";
        const auto& sorted = store->filteredMessages();
        ASSERT_EQ(sorted.size(), messages.size());
        for (std::size_t i = 1; i < sorted.size(); ++i) {
            ASSERT_FALSE(sorted[i]->headers()->hasAllHeaders())
                << "a listing keeps no more than the cached ones";
            ASSERT_LT(compare(*sorted[i - 1], *sorted[i], *store), 0) << i;
            sorted[i - 1]->flushCachedData();
        }
        sorted.back()->flushCachedData();
    }
    store->setSortOrder("no such order");
    EXPECT_EQ(store->filteredMessages(), messages);
}

}  // namespace
}  // namespace lorvale
