/// A mailbox on a real server whose connection goes at any byte, and one that everybody uses at once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "tests/mail/imap/ImapStoreSupport.h"
#include "tests/support/CuttingProxy.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MailServer.h"

namespace lorvale {
namespace {

using ::testing::IsSubsetOf;

std::string subject(int number) {
    return formatText("Subject: Letter %d\n", number);
}

std::string letter(int number) {
    auto text = formatText("From: a%d@x.example\n%@\n", number, subject(number));
    for (int i = 0; i < number * 40; ++i) text += formatText("Line %d of letter %d\n", i, number);
    return text;
}

std::string withoutReturns(std::string_view text) {
    std::string plain(text);
    std::erase(plain, '\r');
    return plain;
}

class ImapStoreTroubleThreads : public ::testing::Test {
protected:
    void SetUp() override {
        if (!_server.runs()) GTEST_SKIP() << _server.whyNot();
        setMailDialect(MailDialect::standard);
        for (int i = 1; i <= 8; ++i) _server.deliver("anna", letter(i));
    }
    void TearDown() override { setMailDialect(MailDialect::classic); }

    /// By UID, as another client finds them.
    std::map<std::string, std::string> onServer() const {
        const auto other = IMAPConnection::imapConnection(MailDialect::standard);
        other->setPort(_server.port("imap"));
        std::map<std::string, std::string> texts;
        EXPECT_TRUE(other->connectToServer("127.0.0.1") && other->login("anna", "secret") &&
                    other->examineMailbox("INBOX"));
        EXPECT_TRUE(other->fetchEach(IMAPMessageSet::from(1), "(UID BODY.PEEK[])", [&](const auto& message) {
            const auto text = message.section().value_or(Data());
            texts[std::to_string(message.uid().value_or(0))] = withoutReturns(text.view());
        }));
        return texts;
    }
    static std::map<std::string, std::string> mirrored(const std::string& place) {
        std::map<std::string, std::string> texts;
        std::error_code none;
        for (const auto& file : std::filesystem::directory_iterator(place + "/CachedMessages", none))
            texts[file.path().filename().string()] = testing::readFile(file.path());
        return texts;
    }

    testing::MailServer _server;
    const testing::TemporaryFolder _folder;
    const std::shared_ptr<testing::ImapUser> _user = std::make_shared<testing::ImapUser>();
    const testing::LogCapture _quiet;
};

TEST_F(ImapStoreTroubleThreads, LosesNothingWhereverTheConnectionIsCut) {
    // Each waits for the disk some ten times; LORVALE_ROUNDS=100 is for whoever has the time.
    const char* const asked = std::getenv("LORVALE_ROUNDS");
    const int rounds = asked == nullptr ? 8 : std::atoi(asked);
    const unsigned seed = asked == nullptr ? 1 : std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    testing::CuttingProxy proxy(_server.port("imap"));
    std::size_t whole = 0;  // of a conversation that nobody cuts
    std::set<int> queued;
    for (int round = 0, place = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        const auto at = formatText("%@/%d.imap", _folder.path().string(), place);
        _user->port = 0;
        auto store = testing::openInbox(at, _user);
        queued.insert(100 + round);
        ASSERT_TRUE(store->appendMessages(MessageList{
            Message::messageWithData(Data("From: me@x.example\n" + subject(100 + round) + "\nText\n"))}));
        store->close();
        _user->port = proxy.port();
        const bool isCut = round % 4 != 0;
        proxy.cutAfter(isCut ? random() % whole : SIZE_MAX);
        store = testing::openInbox(at, _user);
        testing::settle(*store);
        std::string waiting;
        for (const auto& text : store->pendingAppends()) waiting += withoutReturns(text->messageData()->view());
        const auto listed = store->totalCount();
        store->close();
        if (!isCut) whole = proxy.passedOn();

        const auto there = onServer(), here = mirrored(at);
        EXPECT_THAT(here, IsSubsetOf(there));
        if (!isCut) {
            EXPECT_EQ(here, there);
            EXPECT_EQ(listed, there.size());
            EXPECT_EQ(waiting, "");
        }
        std::string all = waiting;
        for (const auto& [uid, text] : there) all += text;
        for (const int number : queued) EXPECT_NE(all.find(subject(number)), std::string::npos) << number;
        if (!isCut) ++place;  // the next ones begin without a mirror
    }
}

TEST_F(ImapStoreTroubleThreads, ServesManyThreadsAndClosesInTheMidst) {
    constexpr int kRounds = 4;
    _user->port = _server.port("imap");
    for (int round = 0; round < kRounds; ++round) {
        const auto at = formatText("%@/%d.imap", _folder.path().string(), round / 2);
        const auto store = testing::openInbox(at, _user);
        std::atomic<bool> isDone = false;
        const auto look = [&](std::uint64_t seed) {
            std::mt19937_64 random(seed);
            while (!isDone) {
                const auto all = store->allMessages();
                (void)store->filteredMessages().size();
                (void)store->unreadCount();
                (void)store->mirrorProgress();
                std::this_thread::yield();
                if (all.empty()) continue;
                const auto& message = all[random() % all.size()];
                const auto subjectLine = message->headers()->subject();
                const auto text = message->messageData();
                (void)message->messageFlags()->isRead();
                (void)store->isMirrored(*message);
                // Never another message's text under a header.
                if (text && text->view().find("Subject: " + subjectLine + "\n") == std::string_view::npos)
                    ADD_FAILURE() << subjectLine;
            }
        };
        std::vector<std::jthread> readers;
        for (std::uint64_t i = 0; i < 3; ++i) readers.emplace_back(look, i);
        _server.deliver("anna", letter(10 + round));
        const auto end = RunLoop::Clock::now() + std::chrono::milliseconds(30 * round);
        while (RunLoop::Clock::now() < end) {
            (void)store->doFetchNow(false);
            if (!store->allMessages().empty())
                store->setRead(round % 2 == 0, MessageList{store->allMessages()[0]});
            RunLoop::current()->runOnce(RunLoop::Clock::now() + std::chrono::milliseconds(2));
        }
        store->close();
        isDone = true;
    }
}

}  // namespace
}  // namespace lorvale
