#include <gmock/gmock.h>

#include <thread>

#include "lorvale/platform/exception.h"
#include "lorvale/platform/paths.h"
#include "mail/model/DateUtils.h"
#include "tests/mail/model/MemoryStore.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

constexpr std::string_view kHead =
    "From anna@x.example Thu Aug 22 12:46:23 2002\n"
    "Received: r1\n"
    "From: Anna <anna@x.example>\n"
    "TO: Bert <bert@y>, carl@z\n"
    "Received: r2\n"
    "Cc:\n"
    "Subject: Hello\n"
    "Date: Thu, 22 Aug 2002 12:40:00 +0200\n"
    "Message-ID: <1@x>\n"
    "\n";

std::string encoded(MessageHeaders& headers) {
    const auto data = headers.encodedHeaders();
    return data ? data->toString() : "none";
}

TEST(MessageHeaders, CachedOnesNeedNoReading) {
    const StoredMessage stored(kHead);
    auto& headers = stored.headers();
    EXPECT_EQ(headers.subject(), "Hello");
    EXPECT_THAT(headers.objectsForKey("date"), Optional(ElementsAre("Thu, 22 Aug 2002 12:40:00 +0200")));
    EXPECT_EQ(stored.store->cachedAsked, 1);
    EXPECT_EQ(stored.store->headAsked, 0);
    EXPECT_THAT(headers.objectsForKey("received"), Optional(ElementsAre("r1", "r2")));
    EXPECT_THAT(headers.objectsForKey("cc"), Optional(ElementsAre()));
    EXPECT_EQ(headers.firstObjectForKey("cc"), std::nullopt);
    EXPECT_EQ(headers.objectsForKey("x-none"), std::nullopt);
    EXPECT_EQ(headers.originalKeyForKey("to"), "TO");
    EXPECT_THAT(headers.recipients(), ElementsAre("Bert <bert@y>", "carl@z"));
    EXPECT_EQ(stored.store->headAsked, 1);
    headers.flushCachedData();
    EXPECT_EQ(headers.subject(), "Hello");
    EXPECT_EQ(headers.messageID(), "<1@x>");
    EXPECT_EQ(stored.store->cachedAsked, 1);
    EXPECT_EQ(stored.store->headAsked, 2);
}

TEST(MessageHeaders, CachedKeysAreNormalisedAndShared) {
    MessageHeaders one, other;
    CachedHeaders given;
    given.set("sUBJECT", std::string("s"));
    for (auto* each : {&one, &other}) each->setCachedHeaders(given);
    EXPECT_EQ(one.subject(), "s");
    EXPECT_EQ(one.originalKeyForKey("subject"), "sUBJECT");
    const auto cached = one.cachedHeaders(), others = other.cachedHeaders();
    EXPECT_EQ((*cached.begin()).key.data(), (*others.begin()).key.data());
}

TEST(MessageHeaderThreads, ShareTheirKeys) {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 200; ++i) {
                const auto name = "key" + std::to_string(i);
                EXPECT_EQ(sharedHeaderKey(name).data(), sharedHeaderKey(name).data());
            }
        });
    }
}

TEST(MessageHeaders, EditsAreWrittenAndLostByAFlush) {
    const StoredMessage stored("From a b\nX-One: 1\nReceived: r1\nReceived: r2\nSubject: old\n\n");
    auto& headers = stored.headers();
    headers.setObject("new", "SUBject");
    headers.setObject("2", "X-Two");
    headers.removeObjectForKey("x-one");
    headers.setObject(std::nullopt, "X-Gone");
    EXPECT_THROW(headers.removeObjectForKey("received"), GenericException);
    EXPECT_TRUE(headers.headersChanged());
    EXPECT_EQ(encoded(headers), "From a b\nReceived: r1\nReceived: r2\nSUBject: new\nX-Two: 2\n\n");
    EXPECT_EQ(headers.encodedHeadersForDelivery()->view(),
              "Received: r1\nReceived: r2\nSUBject: new\nX-Two: 2\n\n");
    EXPECT_EQ(headers.subject(), "old");  // what the store has at hand is not touched

    MessageHeaders copy(headers);
    copy.setObject("3", "X-Two");
    EXPECT_EQ(headers.firstTextForKey("x-two"), "2");

    headers.flushCachedData();
    EXPECT_EQ(headers.firstTextForKey("x-one"), "1");
    EXPECT_EQ(copy.firstTextForKey("x-two"), "3");
}

TEST(MessageHeaders, TakeBracedValuesAndHandOutSharesThatStay) {
    const StoredMessage stored(kHead);
    auto& headers = stored.headers();
    const auto before = headers.allHeaders();
    const auto order = headers.allHeadersOrder();
    headers.setObject({"a", "b"}, "X-Own");
    headers.setObject({}, "X-None");
    EXPECT_THAT(headers.objectsForKey("x-own"), Optional(ElementsAre("a", "b")));
    EXPECT_THAT(headers.objectsForKey("x-none"), Optional(ElementsAre()));
    headers.flushCachedData();
    EXPECT_EQ(before->count("x-own"), 0u);
    EXPECT_EQ(before->at("received").size(), 2u);
    EXPECT_EQ(order.size(), 9u);
    EXPECT_EQ(headers.objectsForKey("x-own"), std::nullopt);
}

// Reading and changing in turn must not copy all headers each time.
TEST(MessageHeaders, ManyChangesTakeTimeByTheirNumber) {
    MessageHeaders headers;
    for (int i = 0; i < 30'000; ++i) {
        const auto key = "x-" + std::to_string(i);
        if (!headers.firstObjectForKey(key)) headers.setObject("v", key);
    }
    EXPECT_EQ(headers.allHeadersOrder().size(), 30'000u);
}

TEST(MessageHeaders, SummaryIsWhatTheOthersSayByOneReading) {
    for (const std::string& head : {std::string(kHead), std::string("To: t\nCc: c\nCc: d\nSubject: s\n\n"),
                                    std::string("From x y\nDate: 1 Jan 2020 10:00 GMT\n\n"), std::string("\n"),
                                    std::string("From: a\nFrom: b\nSubject: s\nSubject: t\nMessage-ID:\n\n")}) {
        SCOPED_TRACE(head);
        for (const bool readsBlock : {true, false}) {
            const StoredMessage stored(head), asked(head);
            stored.store->readsBlock = readsBlock;
            const LogCapture log;
            const auto summary = stored.headers().summary();
            EXPECT_EQ(summary.from, asked.headers().sender());
            EXPECT_EQ(summary.subject, asked.headers().subject());
            EXPECT_EQ(summary.to, asked.headers().firstTextForKey("to"));
            EXPECT_EQ(summary.cc, asked.headers().firstTextForKey("cc"));
            EXPECT_EQ(summary.messageID, asked.headers().messageID());
            EXPECT_EQ(summary.dateReceived, asked.headers().knownDateReceived());
            EXPECT_FALSE(stored.headers().hasAllHeaders()) << "a listing would keep what nobody asks for again";
            if (!readsBlock) continue;
            EXPECT_EQ(stored.headers().messageID(), summary.messageID);
            EXPECT_EQ(stored.headers().knownDateReceived(), summary.dateReceived);
            EXPECT_EQ(stored.store->headAsked, 3);
            EXPECT_EQ(stored.store->cachedAsked, 0);
        }
    }
}

TEST(MessageHeaders, IDOfAMessageWithoutOneIsMadeUp) {
    EXPECT_EQ(StoredMessage("\n").headers().messageID(), "BogusSubject_BogusDate_BogusTo");
    EXPECT_EQ(StoredMessage("Subject: s\nTo: a\nTo: b\nDate: d\nMessage-ID:\n\n").headers().messageID(),
              "s_d_a");
}

TEST(MessageHeaders, DateOfDeliveryIsFoundInThisOrder) {
    EXPECT_EQ(StoredMessage(kHead).headers().dateReceived(), dateFromLocalCivil({2002, 8, 22, 12, 46, 23}));

    const StoredMessage known(kHead);
    known.store->cached.set("Date", Date(77));
    EXPECT_EQ(known.headers().dateReceived(), Date(77));
    EXPECT_EQ(known.headers().firstTextForKey("date"), "Thu, 1 Jan 1970 00:01:17 +0000");
    EXPECT_THAT(known.headers().objectsForKey("date"), Optional(ElementsAre("Thu, 1 Jan 1970 00:01:17 +0000")));

    LogCapture log;
    const std::string written = "Date: Thu, 22 Aug 2002 12:40:00 +0200\n\n";
    EXPECT_EQ(StoredMessage(written).headers().dateReceived(), Date(1030012800));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(StoredMessage("From a some day\n" + written).headers().dateReceived(), Date(1030012800));
    EXPECT_THAT(log.lines(), Contains("Can't determine date: (some day), trying "
                                      "(Thu, 22 Aug 2002 12:40:00 +0200)"));
    const auto before = Date::now();
    EXPECT_GE(StoredMessage("\n").headers().dateReceived(), before);
}

TEST(MessageHeaders, EnvelopeLineIsMadeOnce) {
    StoredMessage stored("From: Anna <anna@x.example>\nDate: Thu, 22 Aug 2002 12:40:00 +0200\n\n");
    stored.headers().appendFromSpaceIfMissing();
    const auto when = Date(1030012800).inLocalZone().descriptionWithCalendarFormat("%a %b %e %H:%M:%S %Y");
    EXPECT_TRUE(encoded(stored.headers()).starts_with("From anna@x.example " + when + "\nFrom: Anna"));
    EXPECT_EQ(stored.headers().dateReceived(), Date(1030012800));

    setLoginName("jdoe");
    StoredMessage nameless("Subject: x\n\n");
    nameless.headers().appendFromSpaceIfMissing();
    setLoginName({});
    EXPECT_TRUE(encoded(nameless.headers()).starts_with("From jdoe "));

    StoredMessage lost("Subject: x\n\n");
    lost.store->head.reset();
    lost.headers().appendFromSpaceIfMissing();
    EXPECT_FALSE(lost.headers().headersChanged()) << "it would be written as an empty message";
    EXPECT_TRUE(lost.message->bytesAreMissing());

    StoredMessage had(kHead);
    had.headers().appendFromSpaceIfMissing();
    EXPECT_FALSE(had.headers().headersChanged());
}

TEST(MessageHeaders, UnchangedOnesAreTheBytesOfTheStoreAndOutliveIt) {
    StoredMessage stored(kHead);
    const auto headers = stored.message->headers();
    EXPECT_EQ(encoded(*headers), kHead);
    EXPECT_EQ(headers->encodedHeadersForDelivery()->view(), kHead);
    headers->flushCachedData();
    EXPECT_EQ(headers->subject(), "Hello");
    stored.store->head.reset();
    EXPECT_EQ(headers->encodedHeaders(), std::nullopt);
    EXPECT_EQ(stored.message->messageData(), std::nullopt);
    stored.message.reset();
    EXPECT_EQ(headers->subject(), "Hello") << "what the store had at hand";
    EXPECT_TRUE(headers->allHeaders().empty());
}

}  // namespace
}  // namespace lorvale
