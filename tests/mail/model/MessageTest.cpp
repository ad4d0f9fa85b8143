#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "mail/model/RegisteredClass.h"
#include "tests/mail/model/MemoryStore.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using testing::LogCapture;
using testing::StoredMessage;

TEST(Message, LoadsItsPartsOnceAndOnDemand) {
    const StoredMessage stored("Subject: s\n\n", "body\n");
    const auto& message = stored.message;
    EXPECT_EQ(stored.store->headAsked + stored.store->bodyAsked, 0);
    EXPECT_EQ(message->headers(), message->headers());
    EXPECT_EQ(message->messageFlags(), message->messageFlags());
    EXPECT_EQ(message->messageData()->view(), "Subject: s\n\nbody\n");
    EXPECT_EQ(message->messageBody()->encodedBody()->view(), "body\n");
    EXPECT_EQ(stored.store->bodyAsked, 1);
    EXPECT_EQ(message->headers()->subject(), "s");
    EXPECT_EQ(message->cachedDataSize(), 15u);
    message->flushCachedData();
    EXPECT_EQ(message->cachedDataSize(), 10u);
}

TEST(Message, DoesNotKeepItsStoreAlive) {
    StoredMessage stored("Subject: s\n\n");
    EXPECT_EQ(stored.message->messageStore(), stored.store);
    stored.store.reset();
    EXPECT_EQ(stored.message->messageStore(), nullptr);
    EXPECT_EQ(stored.message->messageData(), std::nullopt);
    EXPECT_TRUE(stored.message->messageFlags()->isRead());
}

TEST(Message, MadeOfBytesCarriesItsStoreWithIt) {
    constexpr std::string_view kBytes = "Subject: =?utf-8?q?=C3=A9?=\nTo: a, b\n\nbody\n";
    auto message = Message::messageWithData(Data::ofStatic(kBytes));
    ASSERT_NE(message, nullptr);
    const std::weak_ptr<MessageStore> store = message->messageStore();
    EXPECT_EQ(message->headers()->subject(), "\u00E9");
    EXPECT_EQ(message->messageData()->view(), kBytes);
    EXPECT_EQ(message->messageBody()->message(), message);
    message.reset();
    EXPECT_TRUE(store.expired());
}

TEST(Message, BodyIsOfTheMostWillingClass) {
    class OwnBody : public MessageBody {
    public:
        std::string className() const override { return "OwnBody"; }
    };
    MessageBody::bodyClasses().registerClass(
        {"Own", [](MessageHeaders& headers) { return headers.objectsForKey("x-own") ? 1.0F : 0.0F; },
         [] { return std::make_shared<OwnBody>(); }});
    const StoredMessage stored("To: t\nX-Own: 1\nFrom: f\nSubject: s\n\n");
    EXPECT_EQ(stored.message->description(), "<headers not yet loaded> <body not yet loaded> ");
    stored.message->messageBody();
    EXPECT_EQ(stored.message->description(), "To: t\nFrom: f\nSubject: s\nBody is of class OwnBody\n");
    EXPECT_NE(StoredMessage("X: 1\n\n").message->messageBody()->className(), "OwnBody");
    MessageBody::bodyClasses().unregisterClass("Own");
}

TEST(Message, EmptyOneIsFilledByHand) {
    const MessageBodyClass own{"Own", [](MessageHeaders&) { return 0.0F; },
                               [] { return std::make_shared<MessageBody>(); }};
    const auto message = Message::emptyMessageWithBodyClass(own);
    const auto body = message->messageBody();
    EXPECT_EQ(body->message(), message);
    body->setMessage(Message::emptyMessageWithBodyClass(own));
    EXPECT_EQ(body->message(), message);  // the first one counts
    body->setEncodedBody(Data::copyOf("text"));
    message->flushCachedData();
    EXPECT_EQ(body->encodedBody()->view(), "text");  // there is no store to read it again from
}

// In an order that is not theirs, so that neither the order of definition nor its reverse passes.
std::string touched;
const RegisteredClass kRemote(ClassRank::remote, [] { touched += 'r'; });
const RegisteredClass kPreferred(ClassRank::preferred, [] { touched += 'p'; });
const RegisteredClass kAlternative(ClassRank::alternative, [] { touched += 'a'; });

TEST(RegisteredClasses, AreTouchedOnceByRankAtTheFirstUseOfMessages) {
    Message::initialize();
    Message::initialize();
    EXPECT_EQ(touched, "par");
}

TEST(Message, TellsThatItsBytesCannotBeHad) {
    const StoredMessage stored("Subject: s\n\n");
    stored.headers().allHeaders();
    stored.message->messageBody()->encodedBody();
    EXPECT_FALSE(stored.message->bytesAreMissing());
    stored.message->flushCachedData();
    stored.store->body.reset();
    EXPECT_TRUE(stored.headers().encodedHeaders());
    EXPECT_FALSE(stored.message->bytesAreMissing());  // nobody has asked for the body yet
    EXPECT_EQ(stored.message->messageBody()->encodedBody(), std::nullopt);
    stored.store->head.reset();
    EXPECT_EQ(stored.headers().encodedHeaders(), std::nullopt);
    stored.store->body = Data::copyOf("back again");
    EXPECT_TRUE(stored.message->messageBody()->encodedBody());
    EXPECT_TRUE(stored.message->bytesAreMissing());  // the headers
    stored.store->head = Data::copyOf("Subject: s\n\n");
    EXPECT_TRUE(stored.headers().encodedHeaders());
    EXPECT_FALSE(stored.message->bytesAreMissing());
}

TEST(AttachmentPaths, AreNamedAfterTheSubject) {
    const struct {
        const char* why;
        std::optional<std::string_view> subject, directory;
        std::string_view path;
    } rows[] = {
        {"bad characters become _, leading ones go", "../Re: a/b", "/d", "/d/Re__a_b.x"},
        {"twenty are enough", "abcdefghijklmnopqrstuvwxy", "/d", "/d/abcdefghijklmnopqrst.x"},
        {"one for each character, not for each byte", "a\u00E9\u4E2Db", "", "a__b.x"},
        {"nothing good", " /.. ", std::nullopt, "Corvane.x"},
        {"no subject", std::nullopt, "/d", "/d/Corvane.x"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(Message::_filenameFromSubject(row.subject, row.directory, ".x"), row.path);
    }
}

TEST(AttachmentPaths, AreFreshDirectoriesForTheUserAlone) {
    const testing::TemporaryFolder folder;
    const auto where = folder.path().string();
    const auto first = Message::makeUniqueAttachmentNamed("Plan", where);
    const auto second = Message::makeUniqueAttachmentNamed("Plan", where);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(*first, where + "/Plan.attach");
    EXPECT_NE(*second, *first);
    EXPECT_TRUE(std::filesystem::is_directory(*second));
    EXPECT_EQ(std::filesystem::status(*second).permissions(), std::filesystem::perms::owner_all);

    testing::writeFile(folder / "file", "");
    LogCapture log;
    EXPECT_EQ(Message::makeUniqueAttachmentNamed("Plan", where + "/file"), std::nullopt);
    EXPECT_THAT(log.lines(),
                ::testing::Contains("Could not create attachment directory " + where + "/file/Plan.attach"));

    MessageBody::setDefaultAttachmentDirectory(where + "/usual");
    EXPECT_EQ(Message::makeUniqueAttachmentNamed("Plan", ".y", std::nullopt), where + "/usual/Plan.y");
    MessageBody::setDefaultAttachmentDirectory({});
}

}  // namespace
}  // namespace lorvale
