/// The file that keeps the list of a mailbox on a server.

#include <gtest/gtest.h>

#include "lorvale/imap/message.h"
#include "mail/imap/StoreArchive.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

std::shared_ptr<Message> message(std::string uid, const CachedHeaders& headers) {
    auto made = IMAPMessage::messageWithCachedHeaders(headers, std::nullopt, 123);
    made->setUID(std::move(uid));
    return made;
}

StoreArchive twoMessages() {
    CachedHeaders headers;
    headers.set("from", std::string("Anna <a@x.example>"));
    headers.set("subject", std::string("Grüße\0 und mehr", 17));
    headers.set("date", Date(-3, -19'800));
    StoreArchive archive;
    archive.uidValidity = "77";
    archive.uidNext = "9";
    archive.totalSize = 246;
    archive.all = MessageList{message("3", headers), message("4294967295", {})};
    archive.all[0]->messageFlags()->setRepliedTo(true);
    archive.all[1]->messageFlags()->setObject("Yes", "a host's own");
    static_cast<IMAPMessage&>(*archive.all[1]).setReservedFlags(0xC0000001);
    archive.deleted = MessageList{archive.all[1]};
    archive.filtered = MessageList{archive.all[1], archive.all[0]};
    return archive;
}

TEST(StoreArchive, KeepsAllThatIsListed) {
    const auto written = bytesOf(twoMessages());
    const auto read = storeArchiveFromBytes(testing::ExactCopy(written));
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(bytesOf(*read), written);
    EXPECT_EQ(read->uidValidity + read->uidNext, "779");
    const auto first = read->all[0], second = read->all[1];
    EXPECT_EQ(first->headers()->cachedHeaders().textForKey("subject"), std::string("Grüße\0 und mehr", 17));
    EXPECT_EQ(first->headers()->cachedHeaders().find("date"), HeaderValue(Date(-3, -19'800)));
    EXPECT_FALSE(second->headers()->cachedHeaders().find("from").has_value());
    EXPECT_TRUE(first->messageFlags()->wasRepliedTo());
    EXPECT_EQ(second->messageFlags()->objectForKey("a host's own"), "Yes");
    EXPECT_EQ(static_cast<IMAPMessage&>(*second).uid(), "4294967295");
    EXPECT_EQ(read->filtered[0], second);
}

TEST(StoreArchive, IsWholeOrNothing) {
    const auto whole = bytesOf(twoMessages());
    for (std::size_t i = 0; i < whole.size(); ++i) {
        EXPECT_FALSE(storeArchiveFromBytes(testing::ExactCopy(whole.substr(0, i)))) << "cut at " << i;
        auto changed = whole;
        changed[i] = static_cast<char>(changed[i] ^ 0x20);
        std::string why;
        EXPECT_FALSE(storeArchiveFromBytes(changed, &why)) << "changed at " << i;
        EXPECT_NE(why, "");
    }
    EXPECT_FALSE(storeArchiveFromBytes(whole + '\0'));
}

}  // namespace
}  // namespace lorvale
