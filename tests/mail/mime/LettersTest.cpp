#include <gmock/gmock.h>

#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using enum MailDialect;

std::shared_ptr<Message> original(std::string_view headers, std::string_view text = "") {
    return Message::messageWithData(Data::copyOf(std::string(headers) + "\n" + std::string(text)));
}

std::string bytesOf(MimeBodyPart& part) {
    ByteBuffer bytes;
    part.appendToData(bytes, false);
    return bytes.data().toString();
}

/// "Name: value" lines, sorted by name.
std::string headersOf(Message& letter) {
    std::string all;
    const auto headers = letter.headers()->allHeaders();
    for (const auto& [key, values] : *headers) all += key + ": " + values.front() + "\n";
    return all;
}

class Letters : public ::testing::Test {
protected:
    Letters() { setMailDialect(standard); }
    ~Letters() override { setMailDialect(classic); }
};

TEST_F(Letters, AnswerThoseWhoAsk) {
    const std::string_view all =
        "From: \"B, C\" <b@x>\nTo: Me <me@x>, d@x, G: g@x;\nCc: B@X, e@x\nSubject: s\n";
    const struct {
        const char* why;
        std::string original;
        ReplyTo whom;
        std::string_view reply;
    } rows[] = {
        {"the sender", std::string(all), ReplyTo::sender, "from: me@x\nsubject: Re: s\nto: \"B, C\" <b@x>\n"},
        {"everybody once", std::string(all), ReplyTo::all,
         "cc: d@x, g@x, e@x\nfrom: me@x\nsubject: Re: s\nto: \"B, C\" <b@x>\n"},
        {"who asks for it", "From: b@x\nReply-To: l@x, m@x\nSubject: RE: s\n", ReplyTo::sender,
         "from: me@x\nsubject: RE: s\nto: l@x, m@x\n"},
        {"one's own letter", "From: me@x\nTo: b@x\nCc: c@x\n", ReplyTo::all,
         "cc: c@x\nfrom: me@x\nsubject: Re: \nto: b@x\n"},
        {"a letter to oneself", "From: me@x\nTo: me@x\n", ReplyTo::all,
         "from: me@x\nsubject: Re: \nto: me@x\n"},
        {"a thread", "Message-ID: <3@x>\nReferences: <1@x>\n <2@x>\nIn-Reply-To: <2@x>\n", ReplyTo::sender,
         "from: me@x\nin-reply-to: <3@x>\nreferences: <1@x> <2@x> <3@x>\nsubject: Re: \n"},
        {"its second letter", "Message-ID: <2@x>\nIn-Reply-To: <1@x>\n", ReplyTo::sender,
         "from: me@x\nin-reply-to: <2@x>\nreferences: <1@x> <2@x>\nsubject: Re: \n"},
        {"odd identifiers", "Message-ID: x <a b> <c\nIn-Reply-To: <1@x> <2@x>\n", ReplyTo::sender,
         "from: me@x\nsubject: Re: \n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(headersOf(*replyTo(*original(row.original), row.whom, "me@x")), row.reply);
    }
    std::string ids;
    for (int i = 0; i < 100; ++i) ids += "<" + std::to_string(i) + "@x> ";
    const auto references = headersOf(*replyTo(*original("Message-ID: <z@x>\nReferences: " + ids + "\n")));
    EXPECT_THAT(references, HasSubstr("references: <0@x> <62@x>"));
    EXPECT_THAT(references, HasSubstr("<99@x> <z@x>\n"));
}

TEST_F(Letters, QuoteAndPassOn) {
    const auto letter = original("From: B C <b@x>\nDate: Fri, 20 Feb 2004 15:45:30 +0530\nSubject: s\n",
                                 "a \n\n> b\n\n-- \nB\n");
    EXPECT_EQ(replyTo(*letter)->messageBody()->decodedBody()->string(),
              "On Fri, 20 Feb 2004 at 15:45, B C wrote:\n> a\n>\n>> b\n");
    EXPECT_EQ(forwardOf(*letter)->messageBody()->decodedBody()->string(),
              "\n-------- Forwarded message --------\nFrom: B C <b@x>\nDate: Fri, 20 Feb 2004 15:45:30 +0530\n"
              "Subject: s\n\na \n\n> b\n\n-- \nB\n");
    const auto plain = newLetter({}, SendFormat::plain);
    TextAttributes bold;
    bold.font.emplace(Font::user()).bold = true;
    AttributedText text("\u00E9", bold);
    text.append(AttributedText(FileWrapper::regularFile(Data::ofStatic("bytes"))));
    plain->messageBody()->setDecodedBody(text);
    EXPECT_THAT(plain->messageData()->toString(), EndsWith("format=flowed\nMIME-Version: 1.0\n\nw6k=\n"));
}

TEST_F(Letters, HaveADateAndAName) {
    const auto letter = newLetter("Me <me@x.example>");
    completeLetter(*letter);
    const auto headers = headersOf(*letter);
    EXPECT_THAT(headers, ContainsRegex("message-id: <[a-z0-9]+@x.example>\n"));
    EXPECT_EQ(letter->headers()->sender(), "Me <me@x.example>");
    EXPECT_TRUE(dateInCommonFormatsWithString(letter->headers()->objectsForKey("date")->front()));
    completeLetter(*letter);
    EXPECT_EQ(headersOf(*letter), headers);
}

// Whatever a caller can set, it stays in its header.
TEST(Headers, AreNeverInjected) {
    const LogCapture silence;
    for (const auto dialect : {classic, standard}) {
        setMailDialect(dialect);
        using namespace std::string_view_literals;
        for (const auto end : {"\n"sv, "\r\n"sv, "\r"sv, "\n\n"sv, "\n "sv, "\r\n\t"sv, "\n \n"sv, "\0"sv,
                               "\0\n"sv, "\v"sv, "\f"sv, "\u0085"sv, "\u2028"sv}) {
            const auto evil = "x" + std::string(end) + "Bcc: evil@x" + std::string(end) + "\u00E9";
            const auto letter = newLetter(evil);
            for (const std::string_view name : {"To", "Cc", "Subject", "Date", "Message-ID", "In-Reply-To",
                                                "References", "X-A", "Reply-To", "Content-X"})
                letter->headers()->setObject(evil, name);
            letter->headers()->setObject("x", evil);
            const auto wrapper = FileWrapper::symbolicLink(evil);
            EXPECT_EQ(wrapper->setPreferredFilename(evil), !end.starts_with('\0'));
            letter->messageBody()->setDecodedBody(AttributedText(wrapper));
            const auto part = MimeBodyPart::bodyPartWithFileWrapper(*wrapper, evil, dialect);
            part->setMimeType(evil, evil);
            part->setMimeParameter(evil, evil);
            part->setMimeHeader(evil, evil);
            part->setMimeHeader(evil, "content-description");
            part->setMimeEncoding(evil);
            part->setDisposition(ContentDisposition::attachment, evil);
            for (const auto& bytes : {letter->messageData()->toString(), bytesOf(*part)}) {
                const auto head = bytes.substr(0, bytes.find("\n\n"));
                for (const auto line : split(head, '\n')) {
                    EXPECT_FALSE(lowercased(line).starts_with("bcc")) << head;
                    EXPECT_EQ(line.find_first_of("\r\v\f\0"sv), std::string_view::npos) << head;
                }
                EXPECT_THAT(lowercased(head), HasSubstr("content-type:")) << "all of it is one block";
            }
        }
    }
    setMailDialect(classic);
}

}  // namespace
}  // namespace lorvale
