#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <thread>

#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/platform/exception.h"
#include "lorvale/values/text.h"
#include "mail/mime/PlainOrRich.h"
#include "mail/mime/TransferChoice.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using enum MailDialect;

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
    EXPECT_THAT(bytesOf(*part), EndsWith("\n--B--\n"));

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
    EXPECT_THAT(log.lines(),
                ElementsAre("Looking for attachment a<<b, found a<b", "Looking for attachment last, found "));
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
                        Pointee(SizeIs(1)));
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
    EXPECT_THAT(log.take(), ElementsAre("Unknown \"yenc\" encoding requested--writing 8bit instead"));
}

std::string unfolded(std::string text) {
    for (auto at = text.find("\n "); at != std::string::npos; at = text.find("\n ")) text.erase(at, 1);
    return text;
}

std::string standardPart(const FileWrapper& wrapper) {
    return unfolded(bytesOf(*MimeBodyPart::bodyPartWithFileWrapper(wrapper, std::nullopt, standard)));
}

TEST(StandardComposer, MakesTheTree) {
    const auto types = [](const AttributedText& text) {
        return typesIn(*MimeBodyPart::bodyPartFromAttributedString(text, standard));
    };
    EXPECT_EQ(composed(AttributedText("\u00E9\r\nFrom"), standard),
              "Content-Transfer-Encoding: base64\nContent-Type: text/plain; charset=utf-8; format=flowed\n\n"
              "w6kKRnJvbQ==\n");
    EXPECT_EQ(composed(AttributedText("a \nb"), standard),
              "Content-Transfer-Encoding: 7bit\nContent-Type: text/plain; charset=utf-8\n\na \nb");
    const std::string block = "begin 644 f\n#86)C\nend\n";
    EXPECT_EQ(composed(AttributedText(block), standard),
              "Content-Disposition: inline\nContent-Transfer-Encoding: 7bit\n"
              "Content-Type: text/plain; charset=utf-8; format=flowed\n\n" +
                  block)
        << "to be shown as it stands";
    AttributedText text("a");
    text.append(AttributedText(file("p.PNG")));
    text.append(AttributedText(file("b.pdf")));
    EXPECT_EQ(types(text), "multipart/mixed(text/plain,image/png,application/pdf)");
    text.append(bold("c"));
    text.append(text);
    EXPECT_EQ(types(text),
              "multipart/mixed(multipart/alternative(text/plain,multipart/related(text/html,"
              "image/png)),application/pdf,application/pdf)");
    const auto part = MimeBodyPart::bodyPartFromAttributedString(text, standard);
    EXPECT_EQ(part->bodyParts()->front()->bodyParts()->front()->body(), "a[p.PNG]ca[p.PNG]c");
    EXPECT_EQ(part->bodyParts()->front()->bodyParts()->back()->mimeParameterForKey("type"), "text/html");
    const auto read = MimeBodyPart::bodyPartWithData(Data::copyOf(bytesOf(*part)), standard);
    EXPECT_EQ(read->decodeBodyPartInDirectory(std::nullopt).string(), "a\uFFFCca\uFFFCc\n\uFFFC\n\uFFFC");
    EXPECT_EQ(MimeBodyPart::bodyPartFromAttributedString(with(&TextAttributes::link, "x:", "a"), standard)
                  ->bodyParts()
                  ->front()
                  ->body(),
              "a <x:>");
}

TEST(StandardComposer, MakesPartsOfFiles) {
    EXPECT_EQ(
        standardPart(*file("\u00E9.html", "<p>\xC3\xA9")),
        "Content-Disposition: attachment; filename*=utf-8''%C3%A9.html; filename=\"_.html\"\n"
        "Content-Transfer-Encoding: base64\n"
        "Content-Type: text/html; charset=utf-8; name*=utf-8''%C3%A9.html; name=\"_.html\"\n\nPHA+w6k=\n");
    EXPECT_THAT(standardPart(*file("a.txt", "\xE9")), HasSubstr("Content-Type: text/plain; name=a.txt\n"));
    EXPECT_THAT(standardPart(*FileWrapper::regularFile(Data())), HasSubstr("filename=mime-attachment\n"));

    // A message goes as one where it may stand as it is, and those around it say so.
    AttributedText letter("a");
    letter.append(AttributedText(file("m.eml", "A: b\n\n\xE9\n")));
    const auto bytes = composed(letter, standard);
    EXPECT_THAT(bytes, StartsWith("Content-Transfer-Encoding: 8bit\nContent-Type: multipart/mixed"));
    EXPECT_THAT(bytes, HasSubstr("Content-Transfer-Encoding: 8bit\nContent-Type: message/rfc822"));
    EXPECT_THAT(standardPart(*file("m.eml", "A: b\n\nc\n")), HasSubstr("Encoding: 7bit"));
    EXPECT_THAT(standardPart(*file("m.eml", "A: b\r\n\r\nc\r\n")), HasSubstr("octet-stream; name=m.eml"));

    const auto link = FileWrapper::symbolicLink("/etc/motd");
    ASSERT_TRUE(link->setPreferredFilename("l.txt"));
    EXPECT_THAT(standardPart(*link),
                HasSubstr("message/external-body; access-type=local-file; name=\"/etc/motd\""));
    const auto folder = FileWrapper::directory();
    ASSERT_TRUE(folder->setPreferredFilename("d"));
    folder->addFileWrapper(link);
    EXPECT_THAT(standardPart(*folder), HasSubstr("application/zip; name=d.zip\n"));
}

TEST(StandardComposer, LooksAnewAtPartsOfOtherLetters) {
    const auto written = [](std::string_view bytes) {
        return bytesOf(*MimeBodyPart::bodyPartWithData(Data::copyOf(bytes), standard));
    };
    const std::string head = "Content-Transfer-Encoding: ";
    EXPECT_EQ(written(head + "7bit\nX-A: b\n\n\xE9"),
              head + "base64\nContent-Type: text/plain\nX-A: b\n\n6Q==\n");
    EXPECT_EQ(written(head + "8BIT\n\n\xE9"), head + "8BIT\nContent-Type: text/plain\n\n\xE9");
    EXPECT_EQ(written(head + "uuencode\n\nbegin 644 f\n!80``\n`\nend\n"),
              head + "7bit\nContent-Type: text/plain\n\na");
    EXPECT_EQ(written("Content-Type: multipart/mixed; boundary=B\n\nx\n--B\n\n\xE9\n--B--\ny"),
              head + "7bit\nContent-Type: multipart/mixed; boundary=B\n\n--B\n" + head +
                  "base64\nContent-Type: text/plain\n\n6Q==\n\n--B--\n");
    MimeBodyPart part(standard);
    part.setBodyData(Data::ofStatic("a"));
    part.setMimeEncoding("binary");
    EXPECT_EQ(bytesOf(part), head + "7bit\nContent-Type: text/plain\n\na");
}

/// Texts with attributes and attachments.
AttributedText randomText(std::mt19937& random, std::vector<std::string>& names) {
    const auto below = [&](std::size_t end) { return random() % end; };
    static const std::string longWord(90, 'w'), block = "\nbegin 644 f\n#86)C\nend \nend\n";
    static const std::string words[] = {"a",   "\u65E5\u672C", "< ",           " ",
                                        "\n",  "\n\n",         "x<<y\nFrom z", longWord,
                                        "> q", "-- ",          "\u00E9=E9",    block};
    static const std::string extensions[] = {"", ".png", ".TXT", ".pdf"};
    AttributedText text;
    const bool isPlain = below(2) == 0;
    for (auto count = below(8); count > 0; --count) {
        TextAttributes attributes;
        if (!isPlain)
            attributes.font = Font{Font::user().family, 12.0 + 2 * static_cast<double>(below(3)), below(2) == 0,
                                   below(2) == 0, false};
        text.append(words[below(std::size(words))], attributes);
        if (below(3) != 0) continue;
        names.push_back("\u65E5 " + std::to_string(names.size()) + extensions[below(4)]);
        std::string bytes(below(400), '\0');
        std::ranges::generate(bytes, [&] { return static_cast<char>(below(256)); });
        text.append("|");  // "<" in front of a marker hides it from classic readers
        text.append(AttributedText(file(names.back(), bytes)));
    }
    return text;
}

TEST(Composers, WriteWhatTheReaderReadsBack) {
    const LogCapture silence;
    std::mt19937 random(7);
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        std::vector<std::string> names;
        const auto text = randomText(random, names);
        for (const auto dialect : {classic, standard}) {
            const auto bytes = composed(text, dialect);
            const auto read = MimeBodyPart::bodyPartWithData(Data::copyOf(bytes), dialect)
                                  ->decodeBodyPartInDirectory(std::nullopt);
            auto was = text.attachments();
            std::string wanted = text.string(), got = read.string();
            if (dialect == standard) {
                AttributedText alone(text), readAlone(read);
                alone.removeAllAttachments();
                readAlone.removeAllAttachments();
                wanted = trimmed(alone.string(), "\n");  // a page begins and ends with its text
                got = trimmed(readAlone.string(), "\n");
            }
            ASSERT_EQ(got, wanted) << bytes;
            const auto is = read.attachments();
            ASSERT_EQ(is.size(), was.size()) << bytes;
            const auto byName = [](const auto& a, const auto& b) {
                return a->preferredFilename() < b->preferredFilename();
            };
            if (dialect == standard) std::ranges::sort(was, byName);
            auto sorted = is;
            if (dialect == standard) std::ranges::sort(sorted, byName);
            for (std::size_t i = 0; i < is.size(); ++i) {
                ASSERT_EQ(sorted[i]->regularFileContents().view(), was[i]->regularFileContents().view())
                    << bytes;
                ASSERT_TRUE(dialect == classic || sorted[i]->preferredFilename() == was[i]->preferredFilename())
                    << bytes;
            }
        }
    }
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
    EXPECT_THAT(first, MatchesRegex("Orrin-Mail-[0-9]+-[0-9]+"));
    EXPECT_EQ(std::stoi(second.substr(second.rfind('-') + 1)),
              std::stoi(first.substr(first.rfind('-') + 1)) + 1);
}

}  // namespace
}  // namespace lorvale
