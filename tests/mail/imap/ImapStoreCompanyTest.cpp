/// A mailbox on a real server that others change at the same time.

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>

#include "lorvale/message.h"
#include "lorvale/platform/notification.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "tests/mail/imap/ImapStoreSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MailServer.h"

namespace lorvale {
namespace {

using std::chrono::milliseconds;
using Clock = RunLoop::Clock;

class ImapStoreCompanyThreads : public ::testing::Test {
protected:
    void SetUp() override {
        if (!_server.runs()) GTEST_SKIP() << _server.whyNot();
        setMailDialect(MailDialect::standard);
        user->port = _server.port("imap");
        for (int i = 1; i <= 5; ++i) deliver(i);
        store = testing::openInbox(place, user);
        testing::settle(*store);
    }
    void TearDown() override {
        if (store) store->close();
        setMailDialect(MailDialect::classic);
    }
    void deliver(int number) {
        _server.deliver("anna", formatText("Subject: Letter %d\n\nText of Letter %d\n", number, number));
    }
    static bool soon(const std::function<bool()>& isSo) {
        for (const auto end = Clock::now() + std::chrono::seconds(10); !isSo() && Clock::now() < end;)
            RunLoop::main()->runOnce(Clock::now() + milliseconds(10));
        return isSo();
    }
    /// "UID flags text" of each message, as the store has them and as imap_view prints them.
    std::string seenHere() const {
        std::string lines;
        for (const auto& message : store->allMessages()) {
            const auto flags = message->messageFlags();
            lines += message->messageID() + (flags->isDeleted() ? " \\Deleted" : "") +
                     (flags->isRead() ? " \\Seen" : "") + '\n' +
                     message->messageData().value_or(Data()).toString();
        }
        return lines;
    }
    static std::string readable(std::string_view view) {
        std::string lines;
        for (const auto line : split(view, '\n')) {
            const auto words = split(line, ' ');
            if (words.size() != 3) continue;
            lines += words[0];
            for (const auto flag : split(words[1], ','))
                if (flag == "\\Deleted" || flag == "\\Seen") lines += ' ' + std::string(flag);
            lines += '\n';
            for (std::size_t i = 0; i + 1 < words[2].size(); i += 2)
                lines += static_cast<char>(std::stoi(std::string(words[2].substr(i, 2)), nullptr, 16));
            std::erase(lines, '\r');
        }
        return lines;
    }

    testing::MailServer _server;
    testing::TemporaryFolder _folder;
    const testing::LogCapture _log;
    const std::string place = (_folder / "inbox.imap").string();
    const std::shared_ptr<testing::ImapUser> user = std::make_shared<testing::ImapUser>();
    std::shared_ptr<IMAPStore> store;
};

TEST_F(ImapStoreCompanyThreads, IsToldOfNewMailAndOfWhatGoes) {
    int told = 0;
    const auto token = NotificationCenter::defaultCenter().addObserver([&](const auto&) { ++told; },
                                                                       MessageStoreNewMail, store);
    // Asked anew every few moments, so that news fall into one wait or between two of them.
    ASSERT_TRUE(store->watch(milliseconds(150)));
    RunLoop::main()->runFor(milliseconds(400));
    for (int i = 6; i <= 8; ++i) {
        deliver(i);
        EXPECT_TRUE(soon([&] { return store->totalCount() == static_cast<std::size_t>(i) && told == i - 5; }));
    }
    const auto begin = Clock::now();
    store->deleteMessages(MessageList{store->allMessages()[0]});
    store->doCompact();
    EXPECT_TRUE(soon([&] { return store->totalCount() == 7; }));
    EXPECT_EQ(store->allMessages()[6]->messageData()->toString(), "Subject: Letter 8\n\nText of Letter 8\n");
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5)) << "who wants the connection gets it";
    EXPECT_TRUE(store->watch()) << "still";
    EXPECT_EQ(told, 3);
    // In the long wait, too, and the end of the store is an end at once.
    const auto end = Clock::now();
    store->close();
    EXPECT_LT(Clock::now() - end, std::chrono::seconds(2));
    EXPECT_FALSE(store->isWatched());
    EXPECT_FALSE(store->watch());
}

TEST_F(ImapStoreCompanyThreads, StaysTrueWhilePythonsClientChangesTheMailbox) {
    const auto* const wanted = std::getenv("LORVALE_IMAP_STEPS");
    const int rounds = (wanted != nullptr ? std::atoi(wanted) : 100) / 20;
    ASSERT_TRUE(store->watch());
    for (int round = 0; round < rounds; ++round) {
        const auto command =
            formatText("'%@' %d anna secret INBOX 20 %d",
                       (testing::sourceFolder() / "tests/support/imap_view").string(), user->port, round);
        const std::unique_ptr<FILE, int (*)(FILE*)> rival(::popen(command.c_str(), "r"), ::pclose);
        std::string told;
        std::jthread reader([&] {
            for (int c = 0; (c = std::fgetc(rival.get())) != EOF;) told += static_cast<char>(c);
        });
        // Meanwhile no text may stand below another message's header.
        for (const auto end = Clock::now() + milliseconds(400); Clock::now() < end;) {
            RunLoop::main()->runOnce(Clock::now() + milliseconds(5));
            for (const auto& message : store->allMessages()) {
                if (!store->isMirrored(*message)) continue;
                const auto text = message->messageData().value_or(Data()).toString();
                ASSERT_TRUE(text.empty() ||
                            text.find("Text of " + message->headers()->subject() + "\n") != std::string::npos)
                    << text;
                message->flushCachedData();
            }
        }
        reader.join();
        (void)store->doFetchNow(false);
        const auto there = readable(told);
        ASSERT_TRUE(soon([&] { return !store->isSynchronizing() && seenHere() == there; }))
            << "round " << round << "\n"
            << seenHere() << "--\n"
            << there;
    }
}

}  // namespace
}  // namespace lorvale
