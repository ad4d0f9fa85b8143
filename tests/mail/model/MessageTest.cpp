#include <gmock/gmock.h>

#include <thread>

#include "lorvale/message/flags.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/property_list.h"
#include "lorvale/values/text.h"
#include "mail/model/RegisteredClass.h"
#include "tests/mail/model/MemoryStore.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

/// While it lives there is a class of bodies that takes any message before all others.
struct OneBodyClass {
    template <class Body = MessageBody>
    explicit OneBodyClass(Body* = nullptr) {
        MessageBody::bodyClasses().registerClass(
            {"One", [](MessageHeaders&) { return 2.0F; }, [] { return std::make_shared<Body>(); }});
    }
    ~OneBodyClass() { MessageBody::bodyClasses().unregisterClass("One"); }
};

TEST(Message, LoadsItsPartsOnceAndOnDemand) {
    const OneBodyClass bodies;
    const StoredMessage stored("Subject: s\n\n", "body\n");
    const auto& message = stored.message;
    EXPECT_EQ(stored.store->headAsked + stored.store->bodyAsked, 0);
    EXPECT_EQ(message->headers(), message->headers());
    EXPECT_EQ(message->messageFlags(), message->messageFlags());
    EXPECT_EQ(message->messageData()->view(), "Subject: s\n\nbody\n");
    EXPECT_EQ(message->encodedBody()->view(), "body\n");
    EXPECT_EQ(stored.store->bodyAsked, 1);
    EXPECT_EQ(message->headers()->subject(), "s");
    EXPECT_EQ(message->cachedDataSize(), 15u);
    message->flushCachedData();
    EXPECT_EQ(message->cachedDataSize(), 10u);
    // The headers themselves went, and what is left of them serves the next ones without asking.
    stored.store->head.reset();
    EXPECT_EQ(message->headers()->originalKeyForKey("subject"), "Subject");
    EXPECT_EQ(message->headers()->subject(), "s");
    message->flushCachedData();
    EXPECT_THAT(message->description(), HasSubstr("Subject: s\n"));
    // Not those that somebody holds, that were changed, or that have nowhere to come from again.
    const auto held = message->headers();
    message->flushCachedData();
    EXPECT_EQ(message->headers(), held);
    message->setHeaders(nullptr);
    stored.store->head = Data::copyOf("Subject: s\n\n");
    message->headers()->allHeaders();
    message->headers()->setObject("y", "x");
    message->flushCachedData();
    EXPECT_TRUE(message->headers()->headersChanged());
    message->setMessageStore(nullptr);
    message->setHeaders(nullptr);
    message->headers()->setCachedHeaders(held->cachedHeaders());
    const auto* const own = message->headers().get();
    message->flushCachedData();
    EXPECT_EQ(message->headers().get(), own);
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
    auto message = Message::messageWithData(Data::ofStatic("Subject: =?utf-8?q?=C3=A9?=\n\n"));
    const std::weak_ptr<MessageStore> store = message->messageStore();
    EXPECT_EQ(message->headers()->subject(), "\u00E9");
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
    EXPECT_EQ(stored.message->messageBody()->message(), stored.message);
    const StoredMessage other("X: 1\n\n");
    const auto mime = MessageBody::bodyClasses().classNamed("MimeBody");
    MessageBody::bodyClasses().unregisterClass("MimeBody");
    EXPECT_EQ(other.message->messageBody(), nullptr) << "no class is willing";
    EXPECT_EQ(other.message->encodedBody()->view(), "body\n");
    MessageBody::bodyClasses().registerClass(*mime);
    MessageBody::bodyClasses().unregisterClass("Own");
}

/// The text is the bytes in capitals.
class LoudBody : public MessageBody {
public:
    using MessageBody::_encodedBody;
    bool fails = false;

protected:
    std::optional<Data> encodeBody() override {
        if (fails) throw GenericException("no");
        return Data::copyOf(asciiLowered(_decodedBody()->string()));
    }
    std::shared_ptr<const AttributedText> decodeBody() override {
        if (fails) throw GenericException("no");
        auto text = _encodedBody().value_or(Data()).toString();
        std::ranges::transform(text, text.begin(),
                               [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
        return std::make_shared<const AttributedText>(text);
    }
};

TEST(MessageBody, MakesEachFormOfTheOther) {
    const OneBodyClass bodies(static_cast<LoudBody*>(nullptr));
    const StoredMessage stored("Subject: s\n\n", "body");
    const auto body = std::dynamic_pointer_cast<LoudBody>(stored.message->messageBody());
    std::string heard;
    const auto token = NotificationCenter::defaultCenter().addObserver(
        [&](const Notification& notification) {
            const auto& [key, value] = *notification.userInfo.begin();
            heard += notification.name + " " +
                     (value.type() == typeid(Data) ? std::any_cast<Data>(value).toString()
                                                   : std::any_cast<AttributedText>(value).string());
            heard += key == MessageEncodedBodyKey ? " bytes\n" : " text\n";
        },
        {}, body);
    EXPECT_EQ(body->decodedBody()->string(), "BODY");
    EXPECT_EQ(body->_encodedBody(), std::nullopt) << "the source has it";
    body->setDecodedBody(AttributedText("NEW"));
    EXPECT_EQ(body->encodedBody()->view(), "new");
    EXPECT_EQ(heard,
              "MessageBodyWillBeDecodedNotification body bytes\nMessageBodyWasDecodedNotification BODY text\n"
              "MessageBodyWillBeEncodedNotification NEW text\nMessageBodyWasEncodedNotification new bytes\n");
    EXPECT_EQ(stored.message->messageData()->view(), "Subject: s\n\nnew");
    stored.message->flushCachedData();
    EXPECT_EQ(body->encodedBody()->view(), "body");

    const LogCapture log;
    body->fails = true;
    EXPECT_EQ(body->decodedBody(), nullptr);
    body->setDecodedBody(AttributedText("X"));
    EXPECT_EQ(body->encodedBody(), std::nullopt);
    EXPECT_THAT(log.lines(), ElementsAre("Exception raised during message decoding", "no",
                                         "Exception raised during message encoding", "no"));
    body->setEncodedBody(Data::copyOf("y"));
    body->fails = false;
    EXPECT_EQ(body->decodedBody()->string(), "Y");
}

// Everything that loads lazily, asked for by all threads while one of them flushes: each gets the whole answer.
TEST(MessageThreads, LoadFlagAndFlushAtOnce) {
    const OneBodyClass bodies;
    const StoredMessage stored("Received: r\nSubject: s\nMessage-ID: <1>\n\n", "body\n");
    const auto& message = stored.message;
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 300; ++round) {
                const auto headers = message->headers();
                EXPECT_EQ(headers->subject(), "s");
                EXPECT_EQ(headers->messageID(), "<1>");
                for (const auto& [key, values] : headers->allHeaders()) EXPECT_EQ(values.size(), 1u) << key;
                EXPECT_EQ(message->messageData()->size(), 45u);
                const auto flags = message->messageFlags();
                flags->setDeleted(t % 2 == 0);
                flags->setObject(std::to_string(t), "Mark");
                EXPECT_EQ(flags->objectForKey("Mark")->size(), 1u);
                EXPECT_EQ(flags->priority(), 3u);
                if (t == 0) message->flushCachedData();
                if (t == 1 && round % 10 == 0) message->setHeaders(nullptr);
                if (t == 2 && round % 10 == 0) message->setMessageStore(stored.store);
            }
        });
    }
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
    stored.message->encodedBody();
    EXPECT_FALSE(stored.message->bytesAreMissing());
    stored.message->flushCachedData();
    stored.store->body.reset();
    EXPECT_TRUE(stored.headers().encodedHeaders());
    EXPECT_FALSE(stored.message->bytesAreMissing());  // nobody has asked for the body yet
    EXPECT_EQ(stored.message->encodedBody(), std::nullopt);
    stored.store->head.reset();
    EXPECT_EQ(stored.headers().encodedHeaders(), std::nullopt);
    stored.store->body = Data::copyOf("back again");
    EXPECT_TRUE(stored.message->encodedBody());
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
    const TemporaryFolder folder;
    const auto where = folder.path().string();
    const auto first = Message::makeUniqueAttachmentNamed("Plan", where);
    const auto second = Message::makeUniqueAttachmentNamed("Plan", where);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(*first, where + "/Plan.attach");
    EXPECT_NE(*second, *first);
    EXPECT_TRUE(std::filesystem::is_directory(*second));
    EXPECT_EQ(std::filesystem::status(*second).permissions(), std::filesystem::perms::owner_all);

    writeFile(folder / "file", "");
    LogCapture log;
    EXPECT_EQ(Message::makeUniqueAttachmentNamed("Plan", where + "/file"), std::nullopt);
    EXPECT_THAT(log.lines(), Contains("Could not create attachment directory " + where + "/file/Plan.attach"));

    // The usual place lies in a directory that is everybody's.
    setTemporaryDirectory(where);
    const auto own = where + "/" + loginName();
    std::filesystem::create_directories(where + "/other");
    std::filesystem::create_symlink(where + "/other", own);
    EXPECT_EQ(MessageBody::defaultAttachmentDirectory(), std::nullopt) << "a link that anybody may have laid";
    std::filesystem::remove(own);
    std::filesystem::create_directories(own + "/mail");
    std::filesystem::permissions(own + "/mail", std::filesystem::perms::all);
    EXPECT_EQ(MessageBody::defaultAttachmentDirectory(), own + "/mail");
    for (const auto& path : {own, own + "/mail"})
        EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms::owner_all);
    setTemporaryDirectory({});

    MessageBody::setDefaultAttachmentDirectory(where + "/usual");
    EXPECT_EQ(Message::makeUniqueAttachmentNamed("Plan", ".y", std::nullopt), where + "/usual/Plan.y");
    MessageBody::setDefaultAttachmentDirectory({});
}

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
