#include <gmock/gmock.h>

#include "lorvale/body.h"
#include "lorvale/mime.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/user_defaults.h"
#include "mail/mime/ContentType.h"
#include "mail/mime/FileNames.h"
#include "mail/mime/Multipart.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

std::shared_ptr<MimeBodyPart> partOf(std::string_view bytes, MailDialect dialect = MailDialect::classic) {
    return MimeBodyPart::bodyPartWithData(Data::copyOf(bytes), dialect);
}

std::string typed(std::string_view type, std::string_view body) {
    return "Content-Type: " + std::string(type) + "\n\n" + std::string(body);
}

std::string textOf(std::string_view bytes) {
    return partOf(bytes)->decodeBodyPartInDirectory(std::nullopt).string();
}

TEST(ClassicPart, TakesHeaderAndBodyApartByTheFirstEmptyLine) {
    const LogCapture silence;
    const struct {
        const char* why;
        std::string_view bytes, key, value, body;
    } rows[] = {
        {"keys compare without case", "X-A: 1\n\nb", "x-a", "1", "b"},
        {"the later one replaces", "A: 1\nA: 2\n\nb", "a", "2", "b"},
        {"a fold becomes a blank", "A: 1\n\t2\n\nb", "a", "1 \t2", "b"},
        {"a line without colon goes into the next name", "junk\nA: 1\n\nb", "junk\na", "1", "b"},
        {"nothing behind the colon", "A:\nB: 2\n\nb", "b", "2", "b"},
        {"a newline first: no header, and it stays", "\nA: 1\n\nb", "a", "-", "\nA: 1\n\nb"},
        {"no empty line: all is body", "A: 1\nb", "a", "-", "A: 1\nb"},
        {"nothing behind the empty line", "A: 1\n\n", "a", "1", ""},
        {"nothing at all", "", "a", "-", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto part = partOf(ExactCopy(row.bytes));
        EXPECT_EQ(part->mimeHeaderForKey(row.key).value_or("-"), row.value);
        EXPECT_EQ(part->bodyData()->view(), row.body);
        EXPECT_EQ(part->mimeType(), std::nullopt);
    }
    EXPECT_EQ(MimeBodyPart::bodyPartWithData(std::nullopt, MailDialect::classic)->bodyData(), std::nullopt);
}

TEST(ClassicPart, ReadsTypeAndParametersByTokens) {
    const TextRow rows[] = {
        {"the usual one", "Text/Plain; charset=UTF-8", "text/plain UTF-8"},
        {"blanks, quotes and a comment", "text/plain ; charset = \"us-ascii\" (comment)",
         "text/plain us-ascii"},
        {"pairs with a backslash", R"(text/plain;charset="a\"b\\c")", R"(text/plain a"b\c)"},
        {"a separator in quotes", "text/plain; charset=\"a;b\"", "text/plain a;b"},
        {"a comma separates, too", "text/plain, charset=x, y=z", "text/plain x"},
        {"a comment in a type", "te(c)xt/plain", "text/plain -"},
        {"a separator in a comment ends everything", "text/plain; charset=(a; b) x", "text/plain -"},
        {"no subtype", "text", "text/- -"},
        {"nothing", "", "-/- -"},
    };
    const auto read = [](std::string_view value) {
        const auto type = ContentType::parseClassic(value);
        const auto charset = type.parameters.find("charset");
        return type.type.value_or("-") + "/" + type.subtype.value_or("-") + " " +
               (charset == type.parameters.end() ? "-" : charset->second);
    };
    expectRows(read, rows);
    const auto key = ContentType::parseClassic("a/b;k (c) =v;l =w").parameters;
    EXPECT_THAT(key, ElementsAre(std::pair("k ", "v"), std::pair("l", "w")))
        << "only the last piece is trimmed";
    EXPECT_THROW(partOf(typed("text/plain; charset=x ", "b")), RangeException);
}

TEST(ClassicPart, DecodesOnlyWhatHasAType) {
    LogCapture log;
    const TextRow rows[] = {
        {"base64", "Content-Type: a/b\nContent-Transfer-Encoding: x-base64\n\nQUI=", "AB"},
        {"quoted-printable", "Content-Type: a/b\nContent-Transfer-Encoding: Quoted-Printable\n\na=\nb", "ab"},
        {"uuencode", "Content-Type: a/b\nContent-Transfer-Encoding: uuencode\n\nbegin 644 f\n#86)C\n`\nend\n",
         "abc"},
        {"no type, so no decoding", "Content-Transfer-Encoding: base64\n\nQUI=", "QUI="},
        {"an unknown one", "Content-Type: a/b\nContent-Transfer-Encoding: rot13\n\nb", "b"},
    };
    expectRows([](std::string_view bytes) { return partOf(bytes)->bodyData()->toString(); }, rows);
    EXPECT_THAT(log.take(), ElementsAre("No MIME reader known for \"rot13\"--treating as 7bit"));
    EXPECT_EQ(partOf("Content-Type: a/b\nContent-Transfer-Encoding: x-uuencode\n\nb"), nullptr);
    EXPECT_THAT(log.take(),
                ElementsAre("Missing begin line in uuencoded data", "MimeBody: couldn't readBodyFromData"));
}

TEST(ClassicPart, ReadsTextInTheEncodingOfItsCharset) {
    const LogCapture silence;
    EXPECT_EQ(partOf(typed("text/plain; charset=iso-8859-1", "\xE9"))->body(), "\u00E9");
    const auto windows = partOf(typed("text/plain; charset=iso-8859-1", "\x9E"));
    EXPECT_EQ(windows->bodyEncoding(), StringEncoding::windowsCP1252);
    EXPECT_EQ(windows->body(), "\u017E");
    EXPECT_EQ(partOf(typed("text/plain; charset=iso-8859-1", "\x9F"))->bodyEncoding(),
              StringEncoding::isoLatin1);
    EXPECT_EQ(partOf(typed("text/plain", "\x80"))->bodyEncoding(), StringEncoding::windowsCP1252);
    EXPECT_EQ(partOf(typed("text/plain; charset=utf-8", "\xC3\xA9"))->body(), "\u00E9");
    EXPECT_EQ(partOf(typed("text/plain; charset=us-ascii", "\xE9"))->body(), "\u00E9") << "nothing is lost";
    auto part = partOf("A: b\n\nc");
    part->setBodyEncoding(StringEncoding::utf8);
    EXPECT_EQ(part->bodyEncoding(), StringEncoding::utf8);
}

TEST(ClassicPart, DividesMultipartsByExactLines) {
    LogCapture log;
    const auto pieces = [](std::string_view body, std::optional<std::string> boundary = "B") {
        std::vector<std::string> texts;
        const auto parts = splitMultipartClassically(Data::copyOf(body), std::move(boundary), 100);
        if (!parts) return std::vector<std::string>{"none"};
        for (const auto& part : *parts) texts.push_back(part.toString());
        return texts;
    };
    EXPECT_THAT(pieces("pre\n--B\n1\n--B\n2\n--B--\nepilogue"), ElementsAre("1", "2"));
    EXPECT_THAT(pieces("--B\n1\n--B\n2\n--B--\n"), ElementsAre("1", "2"));
    EXPECT_THAT(pieces("--B\n1\n--B--"), ElementsAre("1\n--B--")) << "a last line without its end is text";
    EXPECT_THAT(pieces("--B\n1\n--B \n2\n--B--\n"), ElementsAre("1\n--B \n2")) << "so is one with blanks";
    EXPECT_THAT(pieces("pre\n--B\n"), ElementsAre()) << "an empty last piece is none";
    EXPECT_THAT(pieces("--B\n\n--B\n2"), ElementsAre("", "2"));
    EXPECT_THAT(pieces(""), ElementsAre());
    EXPECT_TRUE(log.take().empty());
    EXPECT_THAT(pieces("a--b\n--X\n1\n--X--\n", std::nullopt), ElementsAre("1"));
    EXPECT_THAT(log.take(), ElementsAre("Missing multipart boundary parameter; using \"X\""));
    EXPECT_THAT(pieces("--X", std::nullopt), ElementsAre()) << "up to the end of the data";
    EXPECT_THAT(pieces("no dashes - here", std::nullopt), ElementsAre("none"));
    EXPECT_THAT(pieces("a--b", std::nullopt), ElementsAre("none"));
}

TEST(ClassicPart, ShowsEachTypeAsTheTableSays) {
    LogCapture log;
    const auto multipart = [](std::string_view subtype) {
        return typed("multipart/" + std::string(subtype) + "; boundary=B",
                     "\n--B\n" + typed("text/plain", "1") + "\n--B\n" + typed("text/plain", "2") + "\n--B--\n");
    };
    const std::string attachment(kAttachmentCharacter);
    const MadeTextRow rows[] = {
        {"no type", "A: b\n\nx", "x"},
        {"plain", typed("text/plain", "x"), "x"},
        {"private text", typed("text/x-tarn-note", "x"), "x"},
        {"text that has a name", typed("text/plain; name=n", "x"), attachment},
        {"alternative", multipart("alternative"), "2"},
        {"mixed", multipart("mixed"), "12"},
        {"digest", multipart("digest"), "1\u2014\u2014\u2014\u2014\u2014\n2"},
        {"folder", multipart("x-folder"), attachment},
        {"any other multipart", multipart("related"), "12"},
        {"a multipart that cannot be divided", typed("multipart/mixed", "x"), attachment},
        {"a message", typed("message/rfc822", "Subject: s\nFrom: f\nX-Y: y\n\nx"),
         "From: f\nSubject: s\nX-Y: y\n\nx"},
        {"a piece of a message", typed("message/partial; number=1; total=2", "x"),
         "Partial message, part 1 of 2\nTo read this message, select all of the parts of the message and "
         "select the Message --> MIME --> Combine Messages menu item.\n"},
        {"another kind of message", typed("message/x-y", "x"), attachment},
        {"a picture", typed("image/gif", "x"), attachment},
    };
    expectRows(textOf, rows);
    EXPECT_THAT(log.take(), ElementsAre());
    EXPECT_EQ(textOf(typed("text/odd", "x")), "x");
    EXPECT_THAT(log.take(), ElementsAre("Unknown mime text subtype odd, treating as plain"));
    auto& defaults = UserDefaults::standard();
    defaults.setArgument("AutoSelectFont", "YES");
    defaults.setArgument("ShouldInlineMIMETextAttachments", "YES");
    const auto text = partOf(typed("text/plain; name=n", "x"))->decodeBodyPartInDirectory(std::nullopt);
    EXPECT_EQ(text, AttributedText("x", text.attributesAtIndex(0)));
    EXPECT_EQ(text.attributesAtIndex(0).font, Font::userFixedPitch());
    defaults.removeArguments();
    const auto faulty = partOf(typed("multipart/mixed; boundary=B", "\n--B\n" + typed("text/plain ", "1")));
    EXPECT_EQ(faulty->decodeBodyPartInDirectory(std::nullopt).string(),
              "\n--B\nContent-Type: text/plain \n\n1");
    EXPECT_THAT(log.take().back(), HasSubstr("while decoding mime message part.  Displaying as text/plain."));
}

TEST(ClassicPart, GivesAttachmentsTheirFiles) {
    const auto wrapper = [](std::string_view bytes) {
        return partOf(bytes)->decodeBodyPartInDirectory(std::nullopt).attachments().at(0);
    };
    const auto link = wrapper(typed("message/external-body; access-type=local-file; name=\"/a/b\"", "x"));
    EXPECT_EQ(link->symbolicLinkDestination(), "/a/b");
    const auto folder = wrapper(
        typed("multipart/x-folder; boundary=B", "\n--B\n" + typed("image/gif; name=a", "1") + "\n--B\n" +
                                                    typed("image/gif; name=a", "2") + "\n--B--\n"));
    EXPECT_EQ(folder->fileWrappers().size(), 2u);
    EXPECT_EQ(folder->fileWrappers().begin()->first, "a-2.gif");
    // The name and the bytes of a file in BinHex are inside it.
    const auto packed = readFile(testing::sourceFolder() / "fuzz/corpus/binhex/file");
    std::string name;
    const auto fork = decodeBinHex40(Data::copyOf(packed), &name);
    const auto file = wrapper(typed("application/mac-binhex40; name=x.hqx",
                                    "(This file must be converted with BinHex 4.0)\n" + packed));
    EXPECT_EQ(file->filename(), name);
    EXPECT_EQ(file->regularFileContents(), *fork);
}

TEST(ClassicPart, NamesItsFile) {
    const LogCapture silence;
    const TextRow rows[] = {
        {"no name", "application/octet-stream", "mime-attachment"},
        {"a slash leads nowhere", "application/octet-stream; name=\"../a/b.txt\"", ".._a_b.txt"},
        {"names of directories are none", "application/octet-stream; name=\"..\"", "mime-attachment"},
        {"filename before name", "image/gif; name=a.gif; filename=b.gif", "b.gif"},
        {"the extension of the map", "image/gif; name=photo", "photo.gif"},
        {"the spelling of the map", "image/gif; name=photo.GIF", "photo.gif"},
        {"another extension stays in front", "image/gif; name=photo.doc", "photo.doc.gif"},
        {"the subtype where the map has none", "application/x-odd; name=a", "a.odd"},
        {"no file elsewhere", "message/external-body; name=a", "mime-attachment.external-body"},
        {"an encoded word", "application/octet-stream; name=\"=?utf-8?q?=C3=A9?=\"", "\u00E9"},
        {"a slash in the type", "application/x/../../y; name=a", "a.x_.._.._y"},
    };
    expectRows([](std::string_view type) { return partOf(typed(type, "x"))->filename(); }, rows);
    EXPECT_EQ(safeFilename(std::string(300, 'x') + ".txt").size(), 200u);
    EXPECT_TRUE(safeFilename(std::string(300, 'x') + ".txt").ends_with("x.txt"));
    const auto types = fileTypesInText("a/b c d # e\n\n a/* x\nbad\n");
    ASSERT_EQ(types.size(), 2u);
    EXPECT_THAT(types[0].extensions, ElementsAre("c", "d"));
    EXPECT_EQ(types[1].subtype, "*");
}

TEST(ClassicPart, SavesBytesTextAndFolders) {
    const LogCapture silence;
    const TemporaryFolder folder;
    const auto mode = [&](std::string_view value) {
        const auto path = (folder / "mode").string();
        EXPECT_TRUE(partOf(typed("a/b; x-unix-mode=" + std::string(value), "x"))->saveBodyToFile(path));
        return static_cast<unsigned>(std::filesystem::status(path).permissions());
    };
    EXPECT_EQ(mode("0755"), 0755u);
    EXPECT_EQ(mode("493"), 0755u);
    EXPECT_EQ(mode("06755"), 0755u) << "never as somebody else";

    const auto part = partOf(typed("image/gif; name=a", "bytes"));
    part->setAttachmentDirectory((folder / "new").string());
    EXPECT_TRUE(part->saveBodyToFile());
    EXPECT_EQ(readFile(folder / "new/a.gif"), "bytes");
    EXPECT_NE(part->bodyFileIn(std::nullopt), (folder / "new/a.gif").string()) << "that one is taken";
    EXPECT_TRUE(
        partOf(typed("text/plain; charset=utf-8", "\xC3\xA9"))->saveBodyToFile((folder / "t").string()));
    EXPECT_EQ(readFile(folder / "t"), "\xE9") << "in the encoding of this system";
    const auto tree =
        partOf(typed("multipart/x-folder; boundary=B", "\n--B\n" + typed("image/gif; name=a", "1") + "\n--B\n" +
                                                           typed("image/gif; name=a", "2")));
    EXPECT_TRUE(tree->saveBodyToFile((folder / "tree").string()));
    EXPECT_EQ(readFile(folder / "tree/a.gif"), "1");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder / "tree"), {}), 2);
    EXPECT_FALSE(part->saveBodyToFile((folder / "t/x").string())) << "a file is in the way";
}

TEST(ClassicPart, ForgetsItsBytesAndKeepsItsTypes) {
    const auto part = partOf(typed("multipart/alternative; boundary=B", "\n--B\nA: b\n\n1\n--B\n\n2\n--B--\n"));
    EXPECT_EQ(part->numberOfAlternatives(), 2u);
    EXPECT_EQ(part->alternativeAtIndex(0)->bodyData()->view(), "1");
    EXPECT_EQ(part->alternativeAtIndex(-1), part->alternativeAtIndex(1));
    EXPECT_EQ(part->alternativeAtIndex(0)->alternativeAtIndex(3), part->alternativeAtIndex(0));
    part->flushCachedData();
    EXPECT_EQ(part->bodyData(), std::nullopt);
    EXPECT_EQ(part->alternativeAtIndex(0)->bodyData(), std::nullopt);
    EXPECT_EQ(part->alternativeAtIndex(0)->mimeHeaderForKey("A"), "b");
    EXPECT_EQ(part->description(),
              "type: multipart/alternative\nencoding: <no encoding>\nattachment:<no attachment>\nbody parts:\n"
              "type: <no type>/<no subtype>\nencoding: <no encoding>\nattachment:<no attachment>\n"
              "body parts:<no body parts>\n\ntype: <no type>/<no subtype>\nencoding: <no encoding>\n"
              "attachment:<no attachment>\nbody parts:<no body parts>\n\n");
}

/// Work and stack must not grow with what a stranger puts into a message.
class Giants : public ::testing::TestWithParam<MailDialect> {};
INSTANTIATE_TEST_SUITE_P(Both, Giants, ::testing::Values(MailDialect::classic, MailDialect::standard));

TEST_P(Giants, AreReadInTheTimeTheirSizeAsks) {
    const LogCapture silence;
    const auto show = [](const std::string& bytes) {
        return partOf(bytes, GetParam())->decodeBodyPartInDirectory(std::nullopt).length();
    };
    std::string nested, parts = typed("multipart/mixed; boundary=B", ""), messages;
    for (int i = 0; i < 10'000; ++i) {
        const auto number = std::to_string(i);
        nested += "Content-Type: multipart/mixed; boundary=B" + number + "\n\n\n--B" + number + "\n";
        parts += "\n--B\n\nx";
        messages += "Content-Type: message/rfc822\n\n";
    }
    EXPECT_GT(show(nested), 0u);
    EXPECT_GT(show(messages), 0u);
    EXPECT_EQ(partOf(parts, GetParam())->bodyParts()->size(), 10'000u);
    EXPECT_GE(show(parts), 10'000u);
    EXPECT_EQ(show(typed("text/plain", std::string(50'000'000, 'x'))), 50'000'000u);
    std::string headers;
    for (int i = 0; i < 100'000; ++i) headers += "A" + std::to_string(i) + ": b\n";
    EXPECT_EQ(partOf(headers + "\nbody", GetParam())->mimeHeaderForKey("a99999"), "b");
    EXPECT_LE(show(typed("multipart/mixed; boundary=-", std::string(5'000'000, '-'))), 5'000'000u);
    EXPECT_GT(show(typed("text/plain; " + std::string(1'000'000, '('), "x")), 0u);
}

}  // namespace
}  // namespace lorvale
