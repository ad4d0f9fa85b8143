#include <gmock/gmock.h>

#include "lorvale/store/message_cache.h"
#include "tests/mail/model/MemoryStore.h"
#include "tests/support/StoreSupport.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;

/// A body that is held, so that it has a weight until it is flushed.
std::shared_ptr<Message> loaded(std::size_t size) {
    const auto message = Message::messageWithData(Data::copyOf("Subject: a\n\n" + std::string(size, 'x')));
    message->setMessageBody(std::make_shared<MessageBody>());
    message->messageBody()->setMessage(message);
    message->messageBody()->encodedBody();
    return message;
}

TEST(MessageCache, EvictsByAgeAndBySize) {
    MessageCacheManager byAge(1);
    const auto a = loaded(10), b = loaded(20), c = loaded(3000);
    byAge.viewedMessage(nullptr);
    byAge.viewedMessage(a);
    byAge.viewedMessage(a);
    EXPECT_EQ(a->cachedDataSize(), 10u);
    byAge.viewedMessage(b);
    EXPECT_EQ(a->cachedDataSize(), 0u);
    EXPECT_EQ(b->cachedDataSize(), 20u);

    MessageCacheManager bySize(-1, 30);
    const auto d = loaded(20), e = loaded(10), f = loaded(9);
    for (const auto& message : {d, e, f}) bySize.viewedMessage(message);
    EXPECT_EQ(d->cachedDataSize(), 20u) << "30 beside the one viewed is within the limit";
    bySize.viewedMessage(c);
    EXPECT_EQ(c->cachedDataSize(), 3000u) << "the viewed one stays, however large";
    EXPECT_EQ(d->cachedDataSize(), 0u) << "the largest of the others goes";
    EXPECT_EQ(e->cachedDataSize() + f->cachedDataSize(), 19u);
    MessageCacheManager unlimited(-1, MessageCacheManager::kNoLimit);
    for (const auto& message : {loaded(5'000'000), c, f}) unlimited.viewedMessage(message);
    EXPECT_EQ(unlimited.count(), 3u);
    unlimited.flushAllCachedData();
    EXPECT_EQ(c->cachedDataSize() + unlimited.count(), 0u);
}

TEST(MessageCache, LetsGoOfMessagesAndStores) {
    MessageCacheManager cache;
    const auto a = loaded(10), b = loaded(20), c = loaded(30);
    const auto storeOfA = a->messageStore();
    for (const auto& message : {a, b}) cache.viewedMessage(message);
    cache.removeObjectsFromCache({b, c});
    EXPECT_EQ(b->cachedDataSize() + c->cachedDataSize(), 0u) << "also one that was not in it";
    cache.removeObjectsFromCacheForStore(*c->messageStore());
    EXPECT_EQ(cache.count(), 1u);
    cache.removeObjectsFromCacheForStore(*storeOfA);
    EXPECT_EQ(cache.count(), 0u);
    EXPECT_EQ(a->cachedDataSize(), 10u) << "not flushed";
}

}  // namespace
}  // namespace lorvale
