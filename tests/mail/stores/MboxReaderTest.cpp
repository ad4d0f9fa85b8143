/// Where messages begin in a flat mailbox; reading it message by message beside a store over it, and while
/// others change it.
#include <gmock/gmock.h>

#include <fstream>

#include "mail/stores/MboxScan.h"
#include "tests/support/RealMessages.h"
#include "tests/support/StoreSupport.h"
#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace std::string_view_literals;
namespace fs = std::filesystem;

/// All that a host sees of a message.
std::string seenOf(Message& message) {
    const auto bytes = message.messageData();
    auto text = bytes ? bytes->toString() : "(no bytes)";
    const auto cached = message.headers()->cachedHeaders();
    for (const auto& [key, value] : cached) text += std::string(key) + cached.textForKey(key);
    return text + message.messageID() + std::to_string(message.messageSize()) +
           (message.messageFlags()->isRead() ? "R" : "") + (message.bytesAreMissing() ? "!" : "");
}

std::vector<std::string> allIn(MboxReader& reader) {
    std::vector<std::string> all;
    while (const auto message = reader.nextMessage()) all.push_back(seenOf(*message));
    return all;
}

TEST(MboxReader, GivesWhatAStoreLists) {
    const TemporaryFolder folder;
    const auto path = (folder / "box").string();
    std::string many;
    for (int i = 0; many.size() < 600'000; ++i)
        many +=
            mboxMessage("n" + std::to_string(i), std::string(static_cast<std::size_t>(i % 4000), 'x') + "\n");
    const auto odd = readFile(sourceFolder() / "examples/mail/odd");
    for (const auto& bytes :
         {odd, many, std::string(" \n"), std::string("no mailbox"), odd.substr(0, 245), many + "From "}) {
        writeFile(path, bytes);
        const auto reader = MboxReader::readerForPath(path);
        ASSERT_NE(reader, nullptr);
        const auto all = allIn(*reader);
        EXPECT_TRUE(reader->hasReadAll());
        const auto store = MessageStore::storeForPath(path, false, true);
        ASSERT_EQ(all.size(), store->totalCount());
        for (std::size_t i = 0; i < all.size(); ++i) EXPECT_EQ(all[i], seenOf(*store->allMessages()[i]));
        store->close();
    }
    EXPECT_EQ(MboxReader::readerForPath(path + "/none"), nullptr);
    EXPECT_EQ(MboxReader::readerForPath(folder.path().string()), nullptr);
    EXPECT_EQ(MboxReader::readerForPath(""), nullptr);
}

TEST(MboxReader, TellsWhatOthersDidMeanwhile) {
    const TemporaryFolder folder;
    const auto path = (folder / "box").string();
    constexpr std::size_t kCount = 600;  // more than two blocks
    std::vector<std::string> letters;
    std::string box, body(1000, 'b');
    for (std::size_t i = 0; i < kCount; ++i)
        box += letters.emplace_back(mboxMessage(std::to_string(10'000 + i), body));
    const auto append = [&](std::string_view more) { std::ofstream(path, std::ios::app) << more; };
    const struct {
        const char* what;
        std::function<void()> act;
        bool readsAll;
        std::size_t least, most;
    } rows[] = {
        {"nothing", [] {}, true, kCount, kCount},
        {"a letter that may not be complete", [&] { append(letters[0]); }, true, kCount, kCount},
        {"two letters", [&] { append(letters[0] + letters[1]); }, true, kCount + 1, kCount + 1},
        {"more of the last one", [&] { append("more\n"); }, true, kCount, kCount},
        {"cut off", [&] { fs::resize_file(path, box.size() - 300); }, false, kCount - 1, kCount - 1},
        {"cut off far in front", [&] { fs::resize_file(path, 1000); }, false, kCount / 3, kCount / 2},
        {"replaced",
         [&] {
             writeFile(path + ".new", "x");
             fs::rename(path + ".new", path);
         },
         true, kCount, kCount},
        {"overwritten", [&] { writeFile(path, std::string(box.size(), 'x')); }, false, 1, kCount},
        {"removed", [&] { fs::remove(path); }, true, kCount, kCount},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        writeFile(path, box);
        const auto reader = MboxReader::readerForPath(path);
        auto message = reader->nextMessage();
        ASSERT_NE(message, nullptr);
        EXPECT_FALSE(reader->hasReadAll());
        const LogCapture log;
        row.act();
        std::size_t count = 0;
        for (; message; message = reader->nextMessage(), ++count) {
            const auto bytes = message->messageData();
            if (message->bytesAreMissing() || count + 1 >= kCount) continue;
            ASSERT_EQ(bytes->view(), letters[count]) << "its own bytes or none";
        }
        EXPECT_EQ(reader->hasReadAll(), row.readsAll);
        EXPECT_GE(count, row.least);
        EXPECT_LE(count, row.most);
    }
}

TEST(MboxReader, ItsMessagesOutliveItWithTheirHeaders) {
    const TemporaryFolder folder;
    writeFile(folder / "box", mboxMessage("ann"));
    std::shared_ptr<Message> message;
    {
        const auto reader = MboxReader::readerForPath((folder / "box").string());
        message = reader->nextMessage();
        EXPECT_EQ(message->headers()->subject(), "about ann");
    }
    EXPECT_EQ(message->headers()->subject(), "about ann");
    EXPECT_EQ(message->encodedBody(), std::nullopt);
}

/// The messages, each behind a bar, their bodies behind a second one.
std::string scanned(std::string_view bytes) {
    std::string messages;
    for (const auto& entry : mboxEntries(bytes)) {
        const auto header = entry.header(), body = entry.body();
        messages.append("|").append(bytes.substr(header.location, header.length));
        if (body.length > 0) messages.append("|").append(bytes.substr(body.location, body.length));
    }
    return messages;
}

TEST(MboxScan, FindsWhereMessagesBegin) {
    const TextRow rows[] = {
        {"white space alone", " \t\r\f\n", ""},
        {"no separator at the start", "x\nFrom a\n", ""},
        {"a byte order mark is no white space", "\uFEFFFrom a\n", ""},
        {"the blank belongs to the separator", "From\nFrom: x\n", ""},
        {"an unescaped body line splits a message", "From a\n\nFrom Russia\n", "|From a\n\n|From Russia\n"},
        {"an escaped one does not", "From a\n\n>From Russia\n", "|From a\n\n|>From Russia\n"},
        {"the first empty line ends the headers", "From a\nx: y\n\nb\n\nc", "|From a\nx: y\n\n|b\n\nc"},
        {"two newlines must touch", "From a\r\n\r\nb", "|From a\r\n\r\nb"},
        {"only a newline ends a line", "From a\rFrom b\r\nFrom c\r\n", "|From a\rFrom b\r\n|From c\r\n"},
        {"a zero byte is a byte", "From a\0\nFrom b"sv, "|From a\0\n|From b"sv},
    };
    expectRows(scanned, rows);
}

}  // namespace
}  // namespace lorvale
