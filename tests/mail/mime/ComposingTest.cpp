#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/user_defaults.h"
#include "mail/mime/FlowedText.h"
#include "mail/mime/PlainOrRich.h"
#include "mail/mime/TransferChoice.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using enum MailDialect;
using ::testing::HasSubstr;
using testing::LogCapture;
using ::testing::Not;

std::shared_ptr<FileWrapper> file(std::string_view name, std::string_view bytes = "bytes") {
    auto made = FileWrapper::regularFile(Data::copyOf(bytes));
    EXPECT_TRUE(made->setPreferredFilename(name));
    return made;
}

AttributedText bold(std::string_view text) {
    TextAttributes attributes;
    attributes.font = Font::user();
    attributes.font->bold = true;
    return AttributedText(text, attributes);
}

std::string bytesOf(MimeBodyPart& part) {
    ByteBuffer bytes;
    part.appendToData(bytes, false);
    return bytes.data().toString();
}

std::string composed(const AttributedText& text, MailDialect dialect) {
    return bytesOf(*MimeBodyPart::bodyPartFromAttributedString(text, dialect));
}

std::string typesIn(MimeBodyPart& part) {
    auto types = part.mimeType().value_or("-") + "/" + part.mimeSubtype().value_or("-");
    const auto* const children = part.bodyParts();
    for (const auto& child : children != nullptr ? *children : MimeBodyPart::Parts())
        types += (child == children->front() ? "(" : ",") + typesIn(*child);
    return children != nullptr ? types + ")" : types;
}

std::string classicTypes(const AttributedText& text) {
    return typesIn(*MimeBodyPart::bodyPartFromAttributedString(text, classic));
}

/// Text with one attribute.
template <class Member, class Value>
AttributedText with(Member member, const Value& value, std::string_view text = "a") {
    TextAttributes attributes;
    attributes.*member = value;
    return AttributedText(text, attributes);
}

TEST(ClassicComposer, TellsPlainFromRich) {
    using A = TextAttributes;
    Font other = Font::user();
    other.size += 1;
    ParagraphStyle indented;
    indented.headIndent = 1;
    AttributedText text = with(&A::font, Font::userFixedPitch());
    text.append(with(&A::foregroundColor, Color()));
    text.append(with(&A::paragraphStyle, ParagraphStyle()));
    EXPECT_FALSE(containsRichText(text));
    text.append("b");
    EXPECT_FALSE(containsRichText(text)) << "a run without attributes counts for nothing";
    text.append(with(&A::font, Font::user()));
    EXPECT_TRUE(containsRichText(text)) << "the other of the two";
    EXPECT_TRUE(containsRichText(AttributedText("\u00E9")));
    EXPECT_TRUE(containsRichText(with(&A::font, other)));
    EXPECT_TRUE(containsRichText(with(&A::foregroundColor, Color{1, 0, 0, 1})));
    EXPECT_TRUE(containsRichText(with(&A::paragraphStyle, indented)));
    EXPECT_TRUE(containsRichText(with(&A::underline, 0))) << "the attribute, not its value";
    EXPECT_TRUE(containsRichText(AttributedText(file("f"))));

    EXPECT_FALSE(hasVisibleAttributes(with(&A::underline, 0, "\u00E9")));
    EXPECT_FALSE(hasVisibleAttributes(AttributedText(file("f"))));
    EXPECT_FALSE(hasVisibleAttributes(with(&A::link, "mailto:a@b", "a@b")));
    EXPECT_TRUE(hasVisibleAttributes(with(&A::link, "mailto:a@b", "here")));
    EXPECT_TRUE(hasVisibleAttributes(with(&A::underline, 1)));
}

TEST(ClassicComposer, MakesTheTree) {
    const LogCapture log;
    EXPECT_EQ(composed(AttributedText("plain\n"), classic),
              "content-transfer-encoding: 7bit\ncontent-type: text/plain; charset=us-ascii\n\nplain\n");
    EXPECT_EQ(composed(AttributedText(), classic),
              "content-transfer-encoding: 7bit\ncontent-type: text/plain; charset=us-ascii\n\n");
    EXPECT_EQ(composed(AttributedText("\u00E9"), classic),
              "content-transfer-encoding: base64\ncontent-type: text/enriched; charset=iso-8859-1\n\n6Q==\n");
    AttributedText text("a");
    text.append(AttributedText(file("x.gif", std::string(100, '\1'))));
    text.append(AttributedText(file("y.txt", "1\n")));
    text.append("<attachment>b");
    const auto part = MimeBodyPart::bodyPartFromAttributedString(text, classic);
    EXPECT_EQ(typesIn(*part), "multipart/mixed(text/enriched,image/gif,text/plain,text/enriched)");
    EXPECT_EQ(part->bodyParts()->back()->body(), "<<attachment>b");
    part->setMimeParameter("B", "boundary");
    EXPECT_EQ(bytesOf(*part).substr(0, 161),
              "content-transfer-encoding: 7bit\ncontent-type: multipart/mixed; boundary=B\n\n\n--B\n"
              "content-transfer-encoding: 7bit\ncontent-type: text/enriched; charset=us-ascii\n\na\n");
    EXPECT_THAT(bytesOf(*part), ::testing::EndsWith("\n--B--\n"));

    MimeBody::setAutoAlternative(true);
    auto both = MimeBodyPart::bodyPartFromAttributedString(text, classic);
    MimeBody::setAutoAlternative(false);
    EXPECT_EQ(typesIn(*both),
              "multipart/alternative(text/plain,multipart/mixed(text/enriched,image/gif,"
              "text/plain,text/enriched))");
    EXPECT_EQ(both->bodyParts()->front()->body(), "a<attachment missing><attachment missing><attachment>b");

    // What is called by another name than the text of its marker is left out.
    AttributedText odd(file("a<b"));
    odd.append(AttributedText(FileWrapper::regularFile(Data())));
    odd.append(AttributedText(file("last")));
    EXPECT_EQ(classicTypes(odd), "multipart/mixed)");
    EXPECT_THAT(log.lines(), ::testing::ElementsAre("Looking for attachment a<<b, found a<b",
                                                    "Looking for attachment last, found "));
}

TEST(ClassicComposer, MakesPartsOfFiles) {
    const auto link = FileWrapper::symbolicLink("/etc/motd");
    ASSERT_TRUE(link->setPreferredFilename("m.txt"));
    auto folder = FileWrapper::directory();
    ASSERT_TRUE(folder->setPreferredFilename("f"));
    folder->addFileWrapper(file("a.png"));
    folder->addFileWrapper(link);
    folder->setPermissions(0750);
    const auto part = MimeBodyPart::bodyPartWithFileWrapper(*folder, "other", classic);
    EXPECT_EQ(typesIn(*part), "multipart/x-folder(image/png,message/external-body)");
    EXPECT_EQ(part->mimeParameterForKey("name"), "other");
    EXPECT_EQ(part->mimeParameterForKey("x-unix-mode"), "0750");
    const auto& reference = *part->bodyParts()->back();
    EXPECT_EQ(reference.mimeParameterForKey("name"), "/etc/motd");
    EXPECT_THAT(reference.bodyData()->toString(), HasSubstr("content-type: text/plain; charset=us-ascii\n"));

    // A text that is one directory is that directory, and its parts are found in its bytes.
    const auto alone = MimeBodyPart::bodyPartFromAttributedString(AttributedText(folder), classic);
    EXPECT_EQ(typesIn(*alone), "multipart/x-folder(image/png,message/external-body)");
    const auto read = MimeBodyPart::bodyPartWithData(Data::copyOf(bytesOf(*alone)), classic);
    EXPECT_EQ(read->fileWrapperForBody()->fileWrappers().at("a.png")->regularFileContents().view(), "bytes");

    std::shared_ptr<FileWrapper> deep = file("x");
    for (std::size_t level = 0; level <= MimeBodyPart::kDeepestFolder; ++level) {
        if (level == MimeBodyPart::kDeepestFolder) {
            const auto sent = MimeBodyPart::bodyPartWithFileWrapper(*deep, std::nullopt, classic);
            EXPECT_THAT(MimeBodyPart::bodyPartWithData(Data::copyOf(bytesOf(*sent)), classic)->bodyParts(),
                        ::testing::Pointee(::testing::SizeIs(1)));
        }
        auto outer = FileWrapper::directory();
        ASSERT_TRUE(outer->setPreferredFilename("d"));
        outer->addFileWrapper(deep);
        deep = outer;
    }
    EXPECT_THROW(MimeBodyPart::bodyPartWithFileWrapper(*deep, std::nullopt, classic), InvalidArgumentException);
}

TEST(MimeWriter, ChoosesEncodings) {
    const auto lines = [](std::size_t first, std::size_t second) {
        return std::string(first, 'x') + "\n" + std::string(second, 'x') + "\n";
    };
    const auto suspicious = [](std::size_t count, std::size_t all) {
        return std::string(count, '\1') + std::string(all - count, 'x');
    };
    const struct {
        const char* why;
        std::string body;
        std::string_view text, message, other, standardText;
    } rows[] = {
        {"nothing", "", "7bit", "7bit", "7bit", "7bit"},
        {"the longest line that goes as it is", lines(75, 74), "7bit", "7bit", "7bit", "7bit"},
        {"the first one too long", lines(76, 0), "quoted-printable", "8bit", "quoted-printable", "7bit"},
        {"the second one", lines(0, 75), "quoted-printable", "8bit", "quoted-printable", "7bit"},
        {"the longest of the standard", lines(78, 78), "quoted-printable", "8bit", "quoted-printable", "7bit"},
        {"beyond it", lines(0, 79), "quoted-printable", "8bit", "quoted-printable", "quoted-printable"},
        {"a tab", "\t\n", "7bit", "7bit", "7bit", "7bit"},
        {"a return", "a\r\n", "quoted-printable", "8bit", "base64", "base64"},
        {"a delete", "abcdef\x7F", "7bit", "7bit", "7bit", "quoted-printable"},
        {"one in six", suspicious(100, 601), "quoted-printable", "8bit", "quoted-printable",
         "quoted-printable"},
        {"one in six of fewer", suspicious(100, 600), "quoted-printable", "8bit", "base64", "quoted-printable"},
        {"more than one in six", suspicious(100, 599), "quoted-printable", "8bit", "base64", "base64"},
        {"half", suspicious(300, 600), "base64", "8bit", "base64", "base64"},
        {"what begins a message in a mailbox", "a\nFrom b\n", "7bit", "7bit", "7bit", "quoted-printable"},
    };
    using enum BodyKind;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(transferEncodingFor(row.body, text, 76, classic), row.text);
        EXPECT_EQ(transferEncodingFor(row.body, message, 76, classic), row.message);
        EXPECT_EQ(transferEncodingFor(row.body, other, 76, classic), row.other);
        EXPECT_EQ(transferEncodingFor(row.body, text, 76, standard), row.standardText);
    }
    EXPECT_TRUE(canGoAs8bit(std::string(998, '\xE9')));
    EXPECT_FALSE(canGoAs8bit(std::string(999, 'x')));
    EXPECT_FALSE(canGoAs7bit("\xE9"));
}

TEST(MimeWriter, NamesTheCharset) {
    const auto charsetOf = [](auto change) {
        const auto part = std::make_shared<MimeBodyPart>(classic);
        part->setMimeType("text", "plain");
        change(*part);
        ByteBuffer bytes;
        part->appendToData(bytes);
        return part->mimeParameterForKey("charset").value_or("-") + " " + part->mimeEncoding().value_or("-");
    };
    EXPECT_EQ(charsetOf([](auto& part) { part.setBodyString("a"); }), "us-ascii 7bit");
    EXPECT_EQ(charsetOf([](auto& part) { part.setBodyString("\u65E5"); }), "iso-2022-jp quoted-printable");
    EXPECT_EQ(charsetOf([](auto& part) { part.setBodyString("abcdefg \u20AC"); }),
              "windows-1252 quoted-printable");
    EXPECT_EQ(charsetOf([](auto& part) { part.setBodyData(Data::copyOf("\xE9")); }), "iso-8859-1 base64");
    EXPECT_EQ(charsetOf([](auto& part) {
                  part.setBodyString("\u00E9");
                  part.setMimeEncoding("7bit");
              }),
              "us-ascii 7bit");
    EXPECT_EQ(charsetOf([](auto& part) {
                  part.setMimeType("text", "rtf");
                  part.setMimeEncoding("8bit");
              }),
              "x-tarn 8bit");
    // What was chosen for one body is no choice for the next.
    EXPECT_EQ(charsetOf([](auto& part) {
                  part.setBodyString("a");
                  bytesOf(part);
                  part.setBodyString("\u0141\u00F3d\u017A");
              }),
              "iso-8859-2 base64");
}

TEST(MimeWriter, WritesBodiesAsAsked) {
    LogCapture log;
    const auto written = [](std::string_view subtype, std::string_view encoding) {
        MimeBodyPart part(classic);
        part.setMimeType("text", subtype);
        part.setBodyData(Data::copyOf("\xE9"));
        ByteBuffer bytes;
        part.appendBodyToData(bytes, encoding);
        return bytes.data().toString();
    };
    EXPECT_EQ(written("plain", "8bit"), "") << "left out, as ever";
    EXPECT_EQ(written("enriched", "8bit"), "\xE9");
    EXPECT_EQ(written("plain", "binary"), "\xE9");
    EXPECT_EQ(written("plain", "X-Quoted-Printable"), "=E9=\n");
    EXPECT_TRUE(log.take().empty());
    EXPECT_EQ(written("plain", "yenc"), "\xE9");
    EXPECT_THAT(log.take(),
                ::testing::ElementsAre("Unknown \"yenc\" encoding requested--writing 8bit instead"));
}

TEST(FlowedText, ReadsBackAsItWas) {
    const std::string word(30, 'w'), longWord(100, 'w');
    const struct {
        const char* why;
        std::string text, flowed;
    } rows[] = {
        {"short lines stay", "a\n\nb", "a\n\nb"},
        {"a long one is cut behind blanks", word + " " + word + "  " + word, word + " " + word + "  \n" + word},
        {"a word longer than a line", "a " + longWord + " b", "a \n" + longWord + " \nb"},
        {"stuffing", " a\n>b\nFrom c\n>\n", "  a\n >b\n From c\n>\n"},
        {"quoted lines", "> a\n>> " + word + " " + word + " " + word,
         "> a\n>> " + word + " " + word + " \n>> " + word},
        {"a mark within", "> > a", "> > a"},
        {"signatures", "-- \n> -- \na", "-- \n> -- \na"},
        {"what would become one", "-- " + std::string(71, 'x') + " b", "-- " + std::string(71, 'x') + " \nb"},
        {"a cut in front of a mark", word + " " + word + " wwwwwwww > b",
         word + " " + word + " wwwwwwww \n > b"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto flowed = flowedText(row.text);
        ASSERT_TRUE(flowed);
        EXPECT_EQ(*flowed, row.flowed);
        EXPECT_EQ(unflowedText(*flowed, false), row.text);
    }
    EXPECT_FALSE(flowedText("a \nb"));
    EXPECT_FALSE(flowedText("> "));
}

std::shared_ptr<Message> newMessage(const AttributedText& text) {
    static const MessageBodyClass theClass{"MimeBody", nullptr, [] { return std::make_shared<MimeBody>(); }};
    auto message = Message::emptyMessageWithBodyClass(theClass);
    message->messageBody()->setDecodedBody(text);
    return message;
}

TEST(MimeBodies, ComposeWhatWasSetAndTellTheHeaders) {
    const auto message = newMessage(bold("a"));
    const auto body = std::static_pointer_cast<MimeBody>(message->messageBody());
    message->headers()->setObject("s", "Subject");
    message->headers()->setObject("image/gif", "Content-Type");
    body->setFiles({file("x.png"), nullptr});
    EXPECT_EQ(body->mimeSubtype(), "mixed");
    EXPECT_TRUE(body->hasAttachments());
    const auto data = message->messageData();
    ASSERT_TRUE(data);
    EXPECT_THAT(data->toString(), HasSubstr("mime-version: 1.0 (Orrin Lorvale v106)\n"));
    const auto read = Message::messageWithData(*data)->messageBody()->decodedBody();
    ASSERT_TRUE(read);
    EXPECT_EQ(read->string(), "a" + std::string(kAttachmentCharacter));
    EXPECT_TRUE(read->attributesAtIndex(0).font->bold);
    EXPECT_EQ(read->attachments().at(0)->preferredFilename(), "x.png");
    body->setFiles({});
    EXPECT_THAT(message->messageData()->toString(), Not(HasSubstr("x.png")));
}

// Headers and body of a message name one boundary, whoever asked first.
TEST(MimeBodyThreads, ComposeOnce) {
    for (int round = 0; round < 20; ++round) {
        AttributedText text = bold("a");
        text.append(AttributedText(file("x")));
        const auto message = newMessage(text);
        std::thread threads[3];
        for (auto& thread : threads) thread = std::thread([&] { EXPECT_TRUE(message->encodedBody()); });
        for (auto& thread : threads) thread.join();
        const auto read = MimeBodyPart::bodyPartWithData(message->messageData(), classic);
        ASSERT_NE(read->bodyParts(), nullptr);
        EXPECT_EQ(read->bodyParts()->size(), 2u);
    }
}

TEST(Boundaries, AreNeverTheSame) {
    const auto first = MimeBody::makeMimeBoundary(), second = MimeBody::makeMimeBoundary();
    EXPECT_THAT(first, ::testing::MatchesRegex("Orrin-Mail-[0-9]+-[0-9]+"));
    EXPECT_EQ(std::stoi(second.substr(second.rfind('-') + 1)),
              std::stoi(first.substr(first.rfind('-') + 1)) + 1);
}

}  // namespace
}  // namespace lorvale
