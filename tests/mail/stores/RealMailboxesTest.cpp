#include <gmock/gmock.h>

#include <set>

#include "mail/stores/MboxScan.h"
#include "tests/mail/model/RealMail.h"
#include "tests/support/PlainMbox.h"
#include "tests/support/StoreSupport.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
namespace fs = std::filesystem;

std::multiset<const Message*> theSame(const MessageList& messages) {
    std::multiset<const Message*> all;
    for (const auto& message : messages) all.insert(message.get());
    return all;
}

/// Everything that a listing touches, in every order.
void listInEveryOrder(MessageStore& store) {
    const auto all = theSame(store.allMessages());
    for (const auto order : {MessageStoreSortByTitle, MessageStoreSortByAuthor, MessageStoreSortBySize,
                             MessageStoreSortByCreationDate, MessageStoreSortByNumber}) {
        store.setSortOrder(order);
        EXPECT_TRUE(theSame(store.filteredMessages()) == all);
    }
    for (const auto& message : store.allMessages()) {
        message->headers()->sender();
        message->headers()->subject();
        message->encodedBody();
        message->flushCachedData();
    }
}

class RealMailboxes : public ::testing::Test {
protected:
    void SetUp() override {
        if (!shared) GTEST_SKIP() << "the folder of real mail is not there";
    }
    const std::optional<fs::path> shared = sharedData();
    const LogCapture quiet;  // dates that nobody can read are told by hundreds
};

TEST_F(RealMailboxes, EveryFileOpensAndListsByTheRule) {
    int files = 0, messages = 0;
    for (const auto& entry : fs::recursive_directory_iterator(*shared)) {
        if (!entry.is_regular_file()) continue;
        SCOPED_TRACE(entry.path());
        const auto bytes = readFile(entry.path());
        const auto expected = messagesByPlainRule(bytes);
        const auto store = BerkeleyMbox::initWithPath(entry.path().string(), true);
        ASSERT_TRUE(store);
        const auto found = bytesOf(store->allMessages());
        ASSERT_TRUE(std::ranges::equal(found, expected));
        listInEveryOrder(*store);
        ++files;
        messages += static_cast<int>(found.size());
    }
    EXPECT_GT(files, 500);
    EXPECT_GT(messages, 30);
}

TEST_F(RealMailboxes, FourThousandMessagesKeepTheirBytesFromMailboxToMailbox) {
    const TemporaryFolder folder;
    const std::string source = folder / "source", target = folder / "target";
    writeFile(source, unpacked(*shared / "large/english-4k.mbox.xz"));
    if (fs::file_size(source) == 0) GTEST_SKIP() << "xz is not there";
    const auto from = BerkeleyMbox::initWithPath(source, true);
    ASSERT_TRUE(from);
    EXPECT_EQ(from->totalCountAndSize(), (CountAndSize{4150, 20'141'207}));
    const auto to = BerkeleyMbox::initWithPath(target, true, false);
    to->syncAppendMessages(from->allMessages(), false);
    ASSERT_EQ(to->totalCount(), 4150u);
    const auto before = bytesOf(from->allMessages()), after = bytesOf(to->allMessages());
    for (std::size_t i = 0; i < before.size(); ++i)
        ASSERT_EQ(after[i], before[i] + std::string(mboxPadding(before[i]))) << "message " << i;
    listInEveryOrder(*to);
    std::vector<std::shared_ptr<Message>> odd;
    for (std::size_t i = 1; i < to->totalCount(); i += 2) odd.push_back(to->allMessages()[i]);
    to->deleteMessages(odd);
    to->doCompact();
    ASSERT_EQ(to->totalCount(), 2075u);
    for (std::size_t i = 0; i < to->totalCount(); ++i)
        ASSERT_EQ(bytesOf(*to->allMessages()[i]), after[2 * i]) << "message " << i;
}

}  // namespace
}  // namespace lorvale
