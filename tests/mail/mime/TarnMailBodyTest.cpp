#include "lorvale/body/tarn_mail_body.h"

#include <gmock/gmock.h>

#include <random>

#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/subprocess.h"
#include "lorvale/store.h"
#include "lorvale/values/file_wrapper.h"
#include "mail/mime/ArchiveCheck.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

/// One member of a tar archive, as it should be unless `spoil` says otherwise.
std::string member(std::string_view name, char kind = '0', std::string_view data = "",
                   const std::function<void(std::string&)>& spoil = nullptr) {
    std::string header(512, '\0');
    const auto put = [&](std::size_t at, std::string_view text) { header.replace(at, text.size(), text); };
    put(0, name.substr(0, 100));
    put(100, "0000644");
    char size[13];
    std::snprintf(size, sizeof size, "%011zo", data.size());
    put(124, size);
    put(136, "00000000000");
    header[156] = kind;
    put(257, std::string_view("ustar\00000", 8));
    if (spoil) spoil(header);
    put(148, "        ");
    unsigned sum = 0;
    for (const char c : header) sum += static_cast<unsigned char>(c);
    char checksum[8];
    std::snprintf(checksum, sizeof checksum, "%06o", sum);
    put(148, std::string_view(checksum, 7));
    std::string all = header + std::string(data);
    all.resize((all.size() + 511) / 512 * 512);
    return all;
}

std::string pax(std::string_view key, std::string_view value) {
    const auto rest = " " + std::string(key) + "=" + std::string(value) + "\n";
    auto length = rest.size() + 1;
    while (std::to_string(length).size() + rest.size() != length) ++length;
    return std::to_string(length) + rest;
}

const std::string kEnd(1024, '\0');

class TarnMail : public ::testing::Test {
protected:
    TarnMail() {
        TarnMailBody::setTarCommand("/bin/tar");
        MessageBody::setDefaultAttachmentDirectory((folder / "attachments").string());
        fs::create_directory(folder / "attachments");
    }
    ~TarnMail() override { MessageBody::setDefaultAttachmentDirectory(""); }

    /// A new message with a body of this class and this text.
    std::shared_ptr<Message> composed(const AttributedText& text) {
        const auto message = Message::messageWithData(Data::ofStatic("Subject: a drawing\n\n"));
        const auto body = std::make_shared<TarnMailBody>();
        message->setMessageBody(body);
        body->setMessage(message);
        body->setDecodedBody(text);
        return message;
    }
    static std::shared_ptr<TarnMailBody> bodyOf(Message& message) {
        return std::dynamic_pointer_cast<TarnMailBody>(message.messageBody());
    }
    /// The message as it would come back from a mailbox.
    static std::shared_ptr<Message> received(Message& message) {
        const auto body = message.messageBody()->encodedBody();
        const auto header = message.headers()->encodedHeaders();
        if (!body || !header) return nullptr;
        return Message::messageWithData(Data::copyOf(header->toString() + body->toString()));
    }
    std::size_t filesLeft() const {
        const fs::recursive_directory_iterator files(folder / "attachments");
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }

    TemporaryFolder folder;
    LogCapture log;
};

AttributedText randomText(std::mt19937& random) {
    AttributedText text;
    for (auto run = random() % 5 + 1; run > 0; --run) {
        TextAttributes attributes;
        attributes.font = Font{.family = "Times", .size = 12, .bold = random() % 2 == 0};
        if (random() % 3 == 0) attributes.underline = 1;
        text.append("word\xC3\xA9 " + std::to_string(random()) + (random() % 2 == 0 ? "\n" : ""), attributes);
        if (random() % 3 != 0) continue;
        std::string bytes(random() % 3000, '\0');
        for (auto& byte : bytes) byte = static_cast<char>(random());
        const auto file = FileWrapper::regularFile(Data::copyOf(bytes));
        EXPECT_TRUE(file->setPreferredFilename("file " + std::to_string(run) + ".dat"));
        text.append(AttributedText(file));
    }
    return text;
}

TEST_F(TarnMail, ComesBackAsItWasWritten) {
    std::mt19937 random(1);
    for (int round = 0; round < 8; ++round) {
        const auto text = randomText(random);
        {
            const auto message = composed(text);
            const auto again = received(*message);
            ASSERT_NE(again, nullptr);
            EXPECT_THAT(again->headers()->firstTextForKey("tarn-attachment"),
                        MatchesRegex("\\.tar\\.[0-9]+\\.a_drawing.*\\.attach, 0, 1/1, 0, 0"));
            const auto body = bodyOf(*again);
            ASSERT_NE(body, nullptr);
            const auto read = body->decodedBody();
            ASSERT_NE(read, nullptr);
            EXPECT_EQ(read->string(), text.string());
            ASSERT_EQ(read->attachments().size(), text.attachments().size());
            for (std::size_t i = 0; i < text.attachments().size(); ++i)
                EXPECT_EQ(read->attachments()[i]->regularFileContents(),
                          text.attachments()[i]->regularFileContents());
            EXPECT_EQ(read->attributesAtIndex(0).font->bold, text.attributesAtIndex(0).font->bold);
            // Sent on, it keeps its name.
            EXPECT_THAT(again->messageBody()->encodedBody()->toString(), HasSubstr("begin 600 .tar."));
        }
        EXPECT_EQ(filesLeft(), 0U) << "what was laid out for a message goes with it";
    }
}

TEST_F(TarnMail, PlainTextIsNotPacked) {
    const auto message = composed(AttributedText("just words\nFrom here\n"));
    EXPECT_EQ(message->messageBody()->encodedBody()->toString(), "just words\n>From here\n");
    EXPECT_FALSE(message->headers()->objectsForKey("tarn-attachment"));
}

TEST_F(TarnMail, StoredOnesOpenForEver) {
    const auto store =
        MessageStore::storeForPath((sourceFolder() / "tests/data/older_rich/mailbox").string(), false, true);
    ASSERT_NE(store, nullptr);
    const char* const texts[] = {"Plan of the stage\nDear Nora,\nthe boards go", "kept beside the mailbox",
                                 "by its older name"};
    const auto all = store->allMessages();
    ASSERT_EQ(all.size(), std::size(texts));
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto text = all[i]->messageBody()->decodedBody();
        ASSERT_NE(text, nullptr);
        EXPECT_TRUE(text->string().starts_with(texts[i])) << text->string();
        EXPECT_TRUE(std::ranges::any_of(
            text->runs(), [](const auto& run) { return run.attributes.font && run.attributes.font->bold; }));
        EXPECT_EQ(text->attachments().size(), i == 0 ? 1U : 0U);
        EXPECT_EQ(all[i]->messageBody()->encodedBody()->toString() == "\n", i > 0);
        EXPECT_EQ(bodyOf(*all[i])->attachmentSize() > 0, i > 0);
    }
    store->close();
}

TEST_F(TarnMail, WhatIsNotBesideTheMailboxIsMissing) {
    const auto mailbox = (folder / "saved").string();
    std::string letters;
    for (const auto* const reference : {"Note.attach", "../saved"})
        letters +=
            "From a@x.example Thu Aug 22 12:46:23 2002\ntarn-reference: " + std::string(reference) + "\n\n\n";
    writeFile(mailbox, letters);
    const auto store = MessageStore::storeForPath(mailbox, false, true);
    const auto all = store->allMessages();
    const std::string start = "<Missing attachment: message contents could not be found in ";
    EXPECT_EQ(all[0]->messageBody()->decodedBody()->string(),
              start + abbreviateWithTilde((folder / "Note.attach").string()) + ">");
    EXPECT_EQ(all[1]->messageBody()->decodedBody()->string(), start + ">");
    EXPECT_EQ(bodyOf(*all[1])->attachmentSize(), 0U);
    store->close();
}

TEST_F(TarnMail, BrokenOnesSayWhatIsMissingAndLeaveNothing) {
    const auto textOf = [](std::string_view body) -> std::string {
        const auto message = Message::messageWithData(
            Data::copyOf("Subject: s\ntarn-attachment: .tar.1.s, 0, 1/1, 0, 0\n\n" + std::string(body)));
        const auto text = message->messageBody()->decodedBody();
        return text ? text->string() : "(null)";
    };
    EXPECT_EQ(textOf("no blob\n"), "(null)");
    EXPECT_THAT(log.take(), Contains("Errors during uudecoding"));
    const AttributedText text("caf\xC3\xA9");
    const auto fine = composed(text)->messageBody()->encodedBody()->toString();
    const auto noise = uuencodedDataWithFile(Data::ofStatic("not compressed"), "x", 0600).toString();
    EXPECT_EQ(textOf(fine), text.string());
    const std::string none = "/no/such/program", no = "/bin/false", tar = "/bin/tar", sh = "/bin/sh",
                      compress = "/usr/bin/compress";
    const struct {
        std::string tar, compress, shell;
        bool packs;
        const std::string& packed;
    } rows[] = {{tar, compress, sh, true, noise}, {none, compress, sh, false, fine},
                {no, compress, sh, false, fine},  {tar, none, sh, false, fine},
                {tar, no, sh, false, fine},       {tar, compress, none, true, fine},
                {tar, compress, no, true, fine}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.tar + row.compress + row.shell);
        TarnMailBody::setTarCommand(row.tar);
        TarnMailBody::setCompressCommand(row.compress);
        TarnMailBody::setShellCommand(row.shell);
        log.take();
        EXPECT_THAT(textOf(row.packed), HasSubstr("<Missing attachment"));
        EXPECT_THAT(log.take(), Contains(HasSubstr("Could not uncompress/untar attachment for ")));
        EXPECT_EQ(composed(text)->messageBody()->encodedBody().has_value(), row.packs);
        EXPECT_EQ(std::ranges::count(log.take(), "Could not tar & compress & uuencode message") > 0,
                  !row.packs);
        EXPECT_EQ(filesLeft(), 0U);
        // In a mailbox of directories, too, where documents lie for good.
        fs::create_directory(folder / "box");
        const auto message =
            Message::messageWithData(Data::copyOf("tarn-attachment: .tar.1.s, 0, 1/1, 0, 0\n\n" + row.packed));
        EXPECT_TRUE(bodyOf(*message)->decodeBodyIntoDirectory((folder / "box").string()) != nullptr);
        EXPECT_TRUE(fs::is_empty(folder / "box"));
    }
    TarnMailBody::setCompressCommand(compress);
    TarnMailBody::setShellCommand(sh);
    TarnMailBody::setTarCommand(tar);
    fs::create_symlink("/etc", folder / "box" / "link");
    ByteBuffer packed;
    EXPECT_FALSE(TarnMailBody::enztar((folder / "box").string(), packed)) << "nobody would unpack it";
    const auto archive = uudecodedDataIntoFile(Data::copyOf(fine), nullptr, nullptr);
    EXPECT_FALSE(TarnMailBody::deztar(*archive, (folder / "not there").string()));
    EXPECT_FALSE(fs::exists("TXT.rtf"));
}

TEST_F(TarnMail, HostileArchivesDoNothing) {
    const auto put = [](std::size_t at, std::string text) {
        return [at, text = std::move(text)](std::string& header) { header.replace(at, text.size(), text); };
    };
    std::string many;
    for (int i = 0; i < 10'001; ++i) many += member("f" + std::to_string(i));
    const std::pair<const char*, std::string> rows[] = {
        {"an absolute path", member("/tmp/x")},
        {"a path upwards", member("../x")},
        {"one inside", member("a/../../x")},
        {"upwards by its prefix", member("x", '0', "", put(345, "../y"))},
        {"no name", member("")},
        {"a link", member("x", '2', "", put(157, "/etc/passwd"))},
        {"a second name", member("x", '1', "", put(157, "/etc/passwd"))},
        {"a device of characters", member("x", '3')},
        {"a device of blocks", member("x", '4')},
        {"a pipe", member("x", '6')},
        {"a sparse file", member("x", 'S')},
        {"a sparse file of today", member("p", 'x', pax("GNU.sparse.size", "99999999999")) + member("x")},
        {"a long name upwards", member("L", 'L', "../../x") + member("x")},
        {"a long link", member("K", 'K', "/etc") + member("x")},
        {"a name upwards by pax", member("p", 'x', pax("path", "/etc/x")) + member("x")},
        {"a link by pax", member("p", 'x', pax("linkpath", "/etc")) + member("x")},
        {"another size by pax", member("p", 'x', pax("size", "0")) + member("x", '0', "hidden")},
        {"pax that is none", member("p", 'x', "7777 path=x\n") + member("x")},
        {"names for all", member("g", 'g', pax("path", "x")) + member("x")},
        {"a volume's name", member("x", 'V')},
        {"a directory with bytes", member("x/", '5', member("../y"))},
        {"a size of its own kind", member("x", '0', "", put(124, "\x80\x01\x01\x01"))},
        {"a size that is none", member("x", '0', "", put(124, "12x"))},
        {"a header that is none", std::string(512, 'x')},
        {"no name but bytes", member("x").replace(0, 1, 1, '\0')},
        {"to be run as root", member("x", '0', "", put(100, "0004755"))},
        {"too many", many},
    };
    for (const auto& [what, archive] : rows) {
        std::string why;
        EXPECT_FALSE(harmlessArchive(archive + kEnd, why)) << what;
        EXPECT_FALSE(why.empty()) << what;
        EXPECT_FALSE(harmlessArchive(member("before") + archive + kEnd, why)) << what;
    }
    const std::pair<const char*, std::string> good[] = {
        {"files and directories", member("./", '5') + member("./a", '0', "x") + member("b", '7', "y")},
        {"two dots in a name", member("a..b/..c")},
        {"long names", member("L", 'L', std::string(200, 'n')) + member("x") +
                           member("p", 'x', pax("path", "q") + pax("mtime", "1")) + member("y")},
        {"a remark for all", member("g", 'g', pax("comment", "made by hand")) + member("x")},
        {"cut off in its data", member("x", '0', std::string(600, 'y')).substr(0, 800)},
        {"as many as may be", many.substr(512)},
    };
    for (const auto& [what, archive] : good) {
        std::string why;
        EXPECT_EQ(harmlessArchive(archive, why), archive) << what << why;
    }
    std::string why;
    EXPECT_EQ(harmlessArchive(good[0].second + kEnd + member("../behind the end"), why), good[0].second);
    // The road of such a letter to the disk.
    const auto archive = Data::copyOf(member("TXT.rtf", '0', "{\\rtf1 x}") + member("../x") + kEnd);
    ByteBuffer packed;
    const auto unpacked = (folder / "it's \"here\" $HOME").string();
    fs::create_directory(unpacked);
    const PipeCommand compress[] = {{"/usr/bin/compress", {"-f"}}};
    ASSERT_TRUE(runPipe(compress, &archive, &packed));
    EXPECT_FALSE(TarnMailBody::deztar(packed.data(), unpacked));
    EXPECT_TRUE(fs::is_empty(unpacked));
    ByteBuffer fine;
    const auto document = Data::copyOf(member("TXT.rtf", '0', "{\\rtf1 x}") + kEnd);
    ASSERT_TRUE(runPipe(compress, &document, &fine));
    EXPECT_TRUE(TarnMailBody::deztar(fine.data(), unpacked));
    EXPECT_EQ(readFile(unpacked + "/TXT.rtf"), "{\\rtf1 x}");
    // Small as a letter, and a billion zeros on the way to the disk.
    ByteBuffer bomb;
    const PipeCommand zeros[] = {{"/usr/bin/head", {"-c", "300000000", "/dev/zero"}},
                                 {"/usr/bin/compress", {"-f"}}};
    ASSERT_TRUE(runPipe(zeros, nullptr, &bomb));
    EXPECT_FALSE(TarnMailBody::deztar(bomb.data(), unpacked));
}

}  // namespace
}  // namespace lorvale
