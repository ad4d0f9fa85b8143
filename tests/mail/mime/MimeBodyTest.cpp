#include <gmock/gmock.h>

#include <thread>

#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/platform/user_defaults.h"
#include "mail/encoding/LineWrapping.h"
#include "mail/mime/LockedRTFD.h"
#include "tests/mail/model/MemoryStore.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;

std::shared_ptr<MimeBody> mimeBody(const StoredMessage& stored) {
    return std::dynamic_pointer_cast<MimeBody>(stored.message->messageBody());
}

TEST(BodyClasses, AreChosenByTheHeaders) {
    Message::initialize();
    const auto willing = [](std::string_view head) {
        return MimeBody::willingnessToDecode(*StoredMessage(head).message->headers());
    };
    EXPECT_FLOAT_EQ(willing("MIME-Version: 1.0\nContent-Type: text/plain\n\n"), 0.667F);
    EXPECT_FLOAT_EQ(willing("MIME-Version: 1.0\nContent-Type: text\n\n"), 0.333F);
    EXPECT_FLOAT_EQ(willing("Content-Type: text/plain\n\n"), 0.333F);
    const StoredMessage plain("Subject: s\n\n");
    EXPECT_EQ(plain.message->messageBody()->className(), "MimeBody") << "not PlainBody, which is more willing";
    EXPECT_FLOAT_EQ(PlainBody::willingnessToDecode(*plain.message->headers()), 0.433F);

    EXPECT_EQ(MessageBody::bodyClassForMessageEncoding("MIME")->name, "MimeBody");
    EXPECT_EQ(MessageBody::bodyClassForMessageEncoding("Plain"), std::nullopt);
    MessageBody::registerMessageClass(PlainBody::bodyClass(), "Plain");
    EXPECT_EQ(MessageBody::bodyClassForMessageEncoding("Plain")->name, "PlainBody");
    MessageBody::unregisterMessageClassForEncoding("Plain");
    EXPECT_FALSE(MessageBody::bodyClassForMessageEncoding("Plain"));
}

TEST(MimeBodies, TellTheTypeOfWhatIsShown) {
    const auto told = [](std::string_view type) {
        const StoredMessage stored("Content-Type: " + std::string(type) + "\n\n",
                                   "\n--B\nContent-Type: text/html\n\n1");
        const auto body = mimeBody(stored);
        return std::to_string(body->hasAttachments()) + std::to_string(body->isHTML()) +
               std::to_string(body->isRich());
    };
    EXPECT_EQ(told("text/plain"), "000");
    EXPECT_EQ(told("text/html"), "010");
    EXPECT_EQ(told("text/enriched"), "001");
    EXPECT_EQ(told("x-text/plain"), "100");
    EXPECT_EQ(told("image/gif"), "101");
    EXPECT_EQ(told("multipart/alternative; boundary=B"), "010");
    const StoredMessage untyped("A: b\n\n");
    EXPECT_FALSE(mimeBody(untyped)->hasAttachments());
    EXPECT_TRUE(mimeBody(untyped)->isRich());
    EXPECT_EQ(MimeBody::versionString(), "1.0 (Orrin Lorvale v106)");
    EXPECT_EQ(MimeBody::missingAttachmentString(), "<attachment missing>");
}

TEST(MimeBodies, ReadTheirMessageAgainAfterAFlush) {
    StoredMessage stored("From a@b Mon\nContent-Type: text/plain; charset=utf-8\n\n", "\xC3\xA9\n");
    const auto body = mimeBody(stored);
    EXPECT_EQ(body->decodedBody()->string(), "\u00E9\n");
    EXPECT_EQ(stored.message->encodedBody()->view(), "\xC3\xA9\n") << "the very bytes, also behind the text";
    EXPECT_EQ(body->bodyPart()->mimeHeaderForKey("from a@b mon\ncontent-type"), std::nullopt)
        << "the envelope line is no part of it";
    stored.store->body = Data::copyOf("new\n");
    EXPECT_EQ(body->decodedBody()->string(), "\u00E9\n");
    stored.message->flushCachedData();
    EXPECT_EQ(body->decodedBody()->string(), "new\n");
    body->flushEncodedBodyCache();
    body->flushDecodedBodyCache();
    EXPECT_EQ(body->decodedBody()->string(), "new\n");
    stored.store->head.reset();
    stored.message->flushCachedData();
    EXPECT_EQ(body->decodedBody(), nullptr);
    EXPECT_EQ(body->mimeType(), std::nullopt);
}

struct Alternatives : StoredMessage {
    Alternatives()
        : StoredMessage("Content-Type: multipart/alternative; boundary=B\n\n",
                        "\n--B\nContent-Type: text/plain\n\n1\n--B\nContent-Type: text/plain\n\n2\n--B--\n") {}
};

TEST(MimeBodies, ShowTheAlternativeThatIsPreferred) {
    const Alternatives stored;
    const auto body = mimeBody(stored);
    EXPECT_EQ(body->numberOfAlternatives(), 2u);
    EXPECT_EQ(body->decodedBody()->string(), "2");
    body->setPreferredAlternative(0);
    EXPECT_EQ(body->decodedBody()->string(), "1");
}

TEST(MimeBodies, LayOutTheirAttachmentsInTheClassicDialect) {
    const LogCapture silence;
    const TemporaryFolder folder;
    MessageBody::setDefaultAttachmentDirectory(folder.path().string());
    const std::string_view bytes =
        "Subject: Plan\nContent-Type: multipart/mixed; boundary=B\n\n"
        "\n--B\nContent-Type: text/plain\n\na\n--B\nContent-Type: image/gif\n\nGIF\n--B--\n";
    const auto place = (folder / "Plan.mimeattach").string();
    auto message = Message::messageWithData(Data::copyOf(bytes));
    const auto text = message->messageBody()->decodedBody();
    ASSERT_TRUE(text);
    EXPECT_EQ(text->string(), "a" + std::string(kAttachmentCharacter));
    EXPECT_EQ(message->headers()->firstTextForKey("mime-reference"), "Plan.mimeattach");
    EXPECT_EQ(message->messageBody()->attachmentDirectory(), place);
    const auto kept = lockedAttributedStringFromRTFDFile(place);
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->attachments().at(0)->regularFileContents().view(), "GIF");
    message.reset();
    EXPECT_FALSE(std::filesystem::exists(place)) << "it went with its body";

    const auto named = std::string(bytes).insert(0, "Mime-Reference: ../x/Plan.mimeattach\n");
    message = Message::messageWithData(Data::copyOf(named));
    EXPECT_TRUE(message->messageBody()->decodedBody());
    EXPECT_EQ(message->messageBody()->attachmentDirectory(), place) << "never out of the directory";
    message.reset();
    EXPECT_TRUE(std::filesystem::exists(place));
    writeFile(folder / "Plan.mimeattach/TXT.rtf", "\xE9");
    EXPECT_EQ(lockedAttributedStringFromRTFDFile((folder / "none").string()), std::nullopt);

    const auto body = std::make_shared<MimeBody>();
    EXPECT_FALSE(body->makeUniqueTemporaryAttachmentInDirectory(folder.path().string())) << "no message";
    message = Message::messageWithData(Data::copyOf(bytes));
    body->setMessage(message);
    EXPECT_TRUE(body->makeUniqueTemporaryAttachmentInDirectory(folder.path().string()));
    EXPECT_TRUE(std::filesystem::is_directory(*body->attachmentDirectory()));
    MessageBody::setDefaultAttachmentDirectory({});
}

// Who works on the tree has it alone.
TEST(MimeBodyThreads, AskAndFlushAtOnce) {
    const Alternatives stored;
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const auto body = mimeBody(stored);
            for (int round = 0; round < 200; ++round) {
                const auto text = body->decodedBody();
                EXPECT_TRUE(text && text->string() == "2");
                EXPECT_EQ(body->mimeSubtype(), "plain");
                if (t == 0) stored.message->flushCachedData();
                if (t == 1) body->flushDecodedBodyCache();
            }
        });
    }
}

std::string wrapped(std::string_view text, std::size_t column) {
    ByteBuffer out;
    appendDataWrapped(out, text, column, true);
    return out.data().toString();
}

TEST(LineWrapping, CutsBehindBlanksAndEscapesSeparators) {
    EXPECT_EQ(wrapped("a bc d\ne", 4), "a \nbc d\ne");
    EXPECT_EQ(wrapped("a bc d", 5), "a bc \nd");
    EXPECT_EQ(wrapped("longword b", 4), "longword \nb");
    EXPECT_EQ(wrapped("longword", 4), "longword");
    EXPECT_EQ(wrapped("abcd", 4), "abcd");
    EXPECT_EQ(wrapped("From a\nFrom b\n>From c\n", 0), ">From a\n>From b\n>From c\n");
    EXPECT_EQ(wrapped("abcd From x", 6), "abcd \n>From x") << "a cut can make one, too";
}

class ReachablePlainBody : public PlainBody {
public:
    using PlainBody::_encodedBody;
};

struct PlainMessage : StoredMessage {
    explicit PlainMessage(std::string_view head, std::string_view bytes)
        : StoredMessage(head, bytes), body(std::make_shared<ReachablePlainBody>()) {
        body->setMessage(message);
        message->setMessageBody(body);
    }
    std::shared_ptr<ReachablePlainBody> body;
};

TEST(PlainBodies, JoinTheSoftLinesOfTheirOwnKind) {
    const struct {
        std::string_view head, text;
    } rows[] = {
        {"X-Mailer: Corvane 3\n\n", "ab"},
        {"X-Mailer: other\n\n", "a \nb"},
        {"Received: by Tarn.Mailer (1)\nReceived: x\n\n", "ab"},
        {"Received: by Orrin.Mailer\n\n", "ab"},
        {"Received: from y by Orrin.Mailer\n\n", "a \nb"},
    };
    for (const auto& row : rows) {
        const PlainMessage plain(row.head, "a \nb");
        EXPECT_EQ(plain.body->decodedBody()->string(), row.text) << row.head;
        EXPECT_EQ(plain.body->_encodedBody(), std::nullopt);
    }
}

TEST(PlainBodies, AreWrittenInTheSimplestEncoding) {
    const auto written = [](std::string_view text) {
        const PlainMessage plain("Subject: s\n\n", "");
        plain.body->setDecodedBody(AttributedText(text));
        auto bytes = plain.body->encodedBody()->toString();
        return bytes + "|" + plain.headers().firstTextForKey("mime-version") + "|" +
               plain.headers().firstTextForKey("content-type");
    };
    EXPECT_EQ(written("From me"), ">From me||");
    EXPECT_EQ(written("\u00E9"), "\xE9||") << "Latin 1 goes without a label";
    EXPECT_EQ(written("\u20AC"), "\x80|1.0 (Orrin Lorvale v106)|text/plain; charset=windows-1252");
    UserDefaults::standard().setArgument("LineLength", "4");
    EXPECT_EQ(written("a bc d"), "a \nbc d||");
    UserDefaults::standard().setArgument("LineLength", "0");
    EXPECT_EQ(MessageBody::lineLength(), 76);
    UserDefaults::standard().removeArguments();
}

}  // namespace
}  // namespace lorvale
