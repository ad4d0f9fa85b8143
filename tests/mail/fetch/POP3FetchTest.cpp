/// Fetching from a real server, and from one that knows no identifiers.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <random>
#include <thread>

#include "lorvale/message.h"
#include "lorvale/store/mail_account.h"
#include "mail/fetch/SeenMessages.h"
#include "mail/fetch/SpoolFile.h"
#include "tests/mail/fetch/FetchSupport.h"
#include "tests/support/AccountSupport.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/IndexedMailbox.h"
#include "tests/support/MailServer.h"
#include "tests/support/PlainMbox.h"
#include "tests/support/ScriptedPeer.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

struct Account : MailAccount, POP3FetchOptions {
    explicit Account(std::uint16_t on) : number(on) {}
    std::string path() const override { return {}; }
    std::string displayName() const override { return "test"; }
    std::optional<std::string> hostname() const override { return "127.0.0.1"; }
    std::optional<std::string> username() const override { return "anna"; }
    std::optional<std::string> password(bool) override { return secret; }
    void forgetRememberedPassword() override { ++forgotten; }
    bool deleteMessagesOnServer() const override { return deletes; }
    bool onlyFetchUnseenMessages() const override { return onlyUnseen; }
    std::uint16_t fetchPort() const override { return number; }
    POP3Security fetchSecurity() const override { return security; }
    TLSSettings tlsSettings() const override { return tls; }

    std::uint16_t number;
    std::string secret = "secret";
    bool deletes = false, onlyUnseen = true;
    POP3Security security = POP3Security::none;
    TLSSettings tls;
    int forgotten = 0;
};

using Script = std::vector<std::string>;

const std::string kLogin = "S: +OK | C: USER anna | S: +OK | C: PASS secret | S: +OK";

std::string letter(int number) {
    return "From: a@b.example\nReceived: x; Thu, 22 Aug 2002 12:46:23 +0000\nSubject: about " +
           std::to_string(number) + "\nMessage-ID: <" + std::to_string(number) + "@b.example>\n\nhello " +
           std::to_string(number) + "\n.\n..a\nFrom me\n";
}

class POP3Fetch : public FetchFolder {
protected:
    POP3Fetch() {
        ::setenv("TZ", "UTC", 1), ::tzset();
        setMailDialect(MailDialect::standard);
    }
    ~POP3Fetch() override {
        ::unsetenv("TZ"), ::tzset();
        setMailDialect(MailDialect::classic);
    }
    std::shared_ptr<POP3FetchStore> storeOf(const std::shared_ptr<Account>& account) const {
        return POP3FetchStore::initWithPath(at("pop"), true, false, account);
    }
    static bool fetch(POP3FetchStore& store) {
        const bool started = store.performFetch();
        runMainLoopUntil([&] { return !store.isFetching(); }, 60);
        while (RunLoop::current()->dispatch()) continue;  // a child process would do what is left here
        return started;
    }
    /// The bodies in the mailbox for new mail, sorted.
    std::vector<std::string> bodies() const {
        const auto mailbox = TarnMbox::initWithPath(active, true);
        std::vector<std::string> all;
        if (mailbox == nullptr) return all;
        for (const auto& message : mailbox->allMessages())
            all.push_back(mailbox->bodyForMessage(*message)->toString());
        std::ranges::sort(all);
        return all;
    }
    AnsweringAgent agent;
};

class POP3FetchFromServer : public POP3Fetch {
protected:
    void SetUp() override {
        if (!server.runs()) GTEST_SKIP() << server.whyNot();
    }
    void deliver(int count) {
        for (int i = 0; i < count; ++i) server.deliver("anna", letter(delivered++));
    }
    std::shared_ptr<Account> account() const { return std::make_shared<Account>(server.port("pop3")); }
    std::shared_ptr<Account> deleting() const {
        const auto asked = account();
        asked->deletes = true;
        return asked;
    }
    MailServer server;
    int delivered = 0;
};

TEST_F(POP3FetchFromServer, BringsNewMailOnceAndRemembers) {
    deliver(3);
    const auto store = storeOf(account());
    EXPECT_TRUE(fetch(*store));
    EXPECT_EQ(store->messagesFetched(), 3u);
    EXPECT_THAT(bodies(), ElementsAre("hello 0\n.\n..a\n>From me\n\n", "hello 1\n.\n..a\n>From me\n\n",
                                      "hello 2\n.\n..a\n>From me\n\n"));
    EXPECT_FALSE(fs::exists(at("pop/POPSpoolFile")));
    EXPECT_EQ(readSeenMessages(at("pop/.pop_messages_seen")).size(), 3u);
    EXPECT_EQ(server.messagesOf("anna").size(), 3u);
    EXPECT_TRUE(fetch(*store));
    EXPECT_EQ(store->messagesFetched() + store->messagesToRoute() + store->messagesRouted(), 0u);
    deliver(1);
    EXPECT_TRUE(fetch(*store));
    EXPECT_EQ(store->messagesFetched(), 1u);
    EXPECT_EQ(bodies().size(), 4u);
    EXPECT_THAT(agent.said, ElementsAre());
}

TEST_F(POP3FetchFromServer, DeletesWhatItHasWhereAsked) {
    deliver(2);
    const auto asked = deleting();
    asked->number = server.port("pop3s");
    asked->onlyUnseen = false;
    asked->security = POP3Security::tls;
    asked->tls.authorities = server.certificate().string();
    UserDefaults::standard().setArgument("POP3MaximumNumberToFetch", "1");
    const auto store = storeOf(asked);
    EXPECT_TRUE(fetch(*store));
    EXPECT_EQ(store->failures(), std::vector<std::string>());
    ASSERT_EQ(server.messagesOf("anna").size(), 1u);
    EXPECT_EQ(readFile(server.messagesOf("anna")[0]), letter(1));
    EXPECT_EQ(bodies().size(), 1u);
    EXPECT_FALSE(fs::exists(at("pop/.pop_messages_seen"))) << "it was not asked what is new";
}

TEST_F(POP3FetchFromServer, TellsWhatIsWrong) {
    deliver(1);
    const auto asked = account();
    asked->secret = "wrong";
    const auto store = storeOf(asked);
    EXPECT_TRUE(fetch(*store));
    EXPECT_THAT(agent.said,
                ElementsAre("Error while fetching in background: The username and password specified in the "
                            "preferences panel were not accepted by the server."));
    EXPECT_EQ(asked->forgotten, 1);
    agent.said.clear();
    asked->secret = "secret";
    asked->security = POP3Security::startTLS;  // by whose certificate?
    EXPECT_TRUE(fetch(*store));
    EXPECT_THAT(agent.said, ElementsAre(HasSubstr("Background fetch failed with exception: ")));
    EXPECT_EQ(store->failures().size(), 1u);
    EXPECT_THAT(server.log(), Not(HasSubstr("Login: user"))) << "it never heard the password";
    asked->tls.authorities = server.certificate().string();
    EXPECT_TRUE(fetch(*store));
    EXPECT_EQ(bodies().size(), 1u);
    EXPECT_THAT(server.log(), HasSubstr("TLS"));
    writeFile(at("file"), "");
    const auto nowhere = POP3FetchStore::initWithPath(at("file/pop"), true, false, asked);
    EXPECT_THROW(nowhere->performFetch(), POP3Exception);
}

TEST_F(POP3FetchFromServer, TwoAtOnceDoNotFetchTwice) {
    deliver(20);
    const auto one = storeOf(account()), two = storeOf(account());
    EXPECT_TRUE(one->performFetch());
    EXPECT_FALSE(one->performFetch());
    EXPECT_FALSE(two->performFetch());
    runMainLoopUntil([&] { return !one->isFetching(); });
    EXPECT_TRUE(fetch(*two));
    EXPECT_EQ(bodies().size(), 20u);
}

TEST_F(POP3FetchFromServer, ACancelledFetchKeepsWhatHasCome) {
    deliver(2);
    constexpr std::size_t kLong = 30'000'000;
    std::string text = letter(2);
    text.append(kLong, 'x').append("\n");
    server.deliver("anna", text);
    const auto store = storeOf(deleting());
    EXPECT_TRUE(store->performFetch());
    runMainLoopUntil([&] { return store->messagesFetched() == 2; });
    store->progressor()->cancel();
    runMainLoopUntil([&] { return !store->isFetching(); });
    EXPECT_TRUE(store->wasCancelled());
    EXPECT_EQ(bodies().size(), 2u);
    EXPECT_FALSE(fs::exists(at("pop/.pop_messages_seen")));
    EXPECT_EQ(server.messagesOf("anna").size(), 3u);
    EXPECT_THAT(agent.said, ElementsAre());
    EXPECT_TRUE(store->performFetch());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the panel of the last fetch is still there
    runMainLoopUntil([&] { return !store->isFetching(); });
    EXPECT_FALSE(store->wasCancelled());
    EXPECT_EQ(server.messagesOf("anna").size(), 0u);
    deliver(1);
    EXPECT_TRUE(store->performFetch());
    store->close();  // in the middle of it
    EXPECT_FALSE(store->performFetch());
    runMainLoopUntil([] { return true; });
}

/// Real mail arrives as it is, but for what an entry changes.
TEST_F(POP3FetchFromServer, AThousandRealMessagesArriveByteForByte) {
    const auto shared = sharedData();
    const auto mail = shared ? unpacked(*shared / "large/english-4k.mbox.xz") : std::string();
    if (mail.empty()) GTEST_SKIP() << "without the folder of real mail";
    std::vector<std::string> expected;
    auto messages = messagesByPlainRule(mail);
    messages.resize(1000);
    for (const auto message : messages) {
        auto& text = expected.emplace_back(message.substr(message.find('\n') + 1));  // behind the envelope
        server.deliver("anna", text);
        if (!text.ends_with("\n\n")) text += '\n';  // as a mailbox keeps them apart
    }
    EXPECT_TRUE(fetch(*storeOf(account())));
    const auto mailbox = TarnMbox::initWithPath(active, true);
    EXPECT_EQ(mailbox->unreadCount(), expected.size());
    const auto arrived = bytesOf(mailbox->allMessages());
    ASSERT_EQ(arrived.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_EQ(arrived[i].substr(arrived[i].find('\n') + 1), expected[i]);
}

/// A process that is killed at any moment loses nothing.
TEST_F(POP3FetchFromServer, LosesNothingWhenItIsKilledAtAnyMoment) {
    constexpr int kLetters = 300;
    deliver(kLetters);
    std::mt19937 random(7);
    const auto whole = [this] {
        std::string all;
        for (const auto* const place : {"pop/POPSpoolFile", "Active.mbox/mbox", "Active.mbox/Incoming_Mail"})
            if (fs::exists(at(place))) all += readFile(at(place));
        for (const auto& path : server.messagesOf("anna")) {
            std::ifstream file(path, std::ios::binary);  // which the server may rename at this moment
            all.append(std::istreambuf_iterator<char>(file), {});
        }
        int count = 0;
        for (int i = 0; i < kLetters; ++i) {
            const auto text = "\nhello " + std::to_string(i) + "\n.\n..a\n";
            count += std::min(all.find(text + "From me\n"), all.find(text + ">From me\n")) != all.npos ? 1 : 0;
        }
        return count;
    };
    for (int round = 0; round < 25; ++round) {
        const auto microseconds = 1000 + static_cast<int>(random() % 200'000);
        const auto child = ::fork();
        if (child == 0) {
            fetch(*storeOf(deleting()));
            ::_exit(0);
        }
        ::usleep(static_cast<useconds_t>(microseconds));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        auto found = whole();
        for (int look = 0; look < 100 && found < kLetters; ++look, found = whole()) ::usleep(20'000);
        ASSERT_EQ(found, kLetters) << "killed after " << microseconds << " microseconds";
    }
    fetch(*storeOf(deleting()));
    EXPECT_EQ(server.messagesOf("anna").size(), 0u);
    const auto all = bodies();
    EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), static_cast<std::size_t>(kLetters));
}

/// And when the power goes, the disk is full, or the process is killed, at any change of a file.
TEST_F(POP3FetchFromServer, LosesNothingWhenADiskFailsAtAnyChange) {
    // One at every third change, the others at those between.
    for (std::size_t at = 0, survived = 0; survived < std::size(kCutOffs) && at < 300; ++at) {
        SCOPED_TRACE(at);
        fs::remove_all(active);
        fs::remove_all(this->at("pop"));
        while (server.messagesOf("anna").size() < 2) deliver(1);
        survived += survivesCutOff(kCutOffs[at % std::size(kCutOffs)], static_cast<int>(at), [&] {
            try {
                fetch(*storeOf(deleting()));
            } catch (const POP3Exception&) {
                // There is no room for the directory.
            }
        });
        EXPECT_TRUE(fetch(*storeOf(deleting())));
        std::string arrived;
        for (const auto& body : bodies()) arrived += body;
        for (int i = delivered - 2; i < delivered; ++i)
            EXPECT_THAT(arrived, HasSubstr("hello " + std::to_string(i) + "\n.\n..a\n>From me\n"));
        // Seen and told to the server, which did not come to delete it: it is not to stay there for ever.
        EXPECT_EQ(server.messagesOf("anna").size(), 0u);
    }
}

using POP3FetchThreads = POP3FetchFromServer;

TEST_F(POP3FetchThreads, FetchesRoutesAppendsAndIndexesWhileOthersList) {
    deliver(200);
    const auto mailbox = TarnMbox::initWithPath(active, true, false);
    mailbox->setIsIndexed(true);
    mailbox->updateIndex();
    const RoutingBy routing([&](Message&) { return mailbox; });
    const auto store = storeOf(deleting());
    std::atomic<bool> done = false;
    std::atomic<std::size_t> looked = 0;
    std::array<std::jthread, 2> others;
    for (auto& other : others)
        other = std::jthread([&] {
            while (!done)
                for (const MessageStore* each :
                     {static_cast<MessageStore*>(mailbox.get()), static_cast<MessageStore*>(store.get())})
                    for (const auto& message : each->allMessages())
                        looked += message->headers()->subject().size();
        });
    EXPECT_TRUE(fetch(*store));
    deliver(50);
    EXPECT_TRUE(fetch(*store));
    runMainLoopUntil([&] { return looked > 10'000; });
    done = true;
    for (auto& other : others) other.join();
    EXPECT_EQ(mailbox->totalCount(), 250u);
    EXPECT_EQ(mailbox->inconsistency(), "");
    ASSERT_TRUE(IndexManager::waitUntilIdle(*mailbox, std::chrono::steady_clock::now() + kPatience));
    const std::shared_ptr<MessageStore> indexed[] = {mailbox};
    EXPECT_EQ(IndexManager::indexManager().search(indexed, {"hello", false, 1000}).hits->size(), 250u);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they keep what is given back
/// From the server into the mailbox, memory is taken for a message or a few, however many there are.
TEST_F(POP3Fetch, MemoryIsBoundedByTheLargestMessage) {
    constexpr int kCount = 40;
    const std::string line(70, 'x');
    std::string text = "s: ";
    while (text.size() < 1'000'000) text += line + "\r\n";
    Script script = {kLogin, "C: STAT | S: +OK 40 40000000", "C: LIST | S: +OK"};
    for (int i = 1; i <= kCount; ++i) script.push_back("S: " + std::to_string(i) + " 1000000");
    script.insert(script.end(), {"S: .", "C: UIDL | S: -ERR"});
    const auto subject = [](int i) { return "S: +OK | S: Subject: " + std::to_string(i) + " | S: "; };
    for (int i = kCount; i >= 1; --i)
        script.insert(script.end(), {"C: TOP " + std::to_string(i) + " 0", subject(i), "S: ."});
    for (int i = 1; i <= kCount; ++i)
        script.insert(script.end(), {"C: RETR " + std::to_string(i), subject(i), text, "S: ."});
    script.emplace_back("C: QUIT | S: +OK");
    setMailDialect(MailDialect::classic);
    ScriptedPeer peer(script);
    const auto grown = inChild([&] {
        rusage before{}, after{};
        ::getrusage(RUSAGE_SELF, &before);
        fetch(*storeOf(std::make_shared<Account>(peer.port())));
        ::getrusage(RUSAGE_SELF, &after);
        return static_cast<int>((after.ru_maxrss - before.ru_maxrss) / 1024);
    });
    EXPECT_EQ(peer.firstSurprise(), "");
    EXPECT_EQ(bodies().size(), static_cast<std::size_t>(kCount));
    EXPECT_LT(grown, 30) << "megabytes";
}
#endif

TEST_F(POP3Fetch, WithoutIdentifiersGoesDownToTheFirstMessageThatWasSeen) {
    fs::create_directory(at("pop"));
    ASSERT_TRUE(writeSeenMessages(at("pop/.pop_messages_seen"), {{"<2@x>", 2}, {"odd \x01 \xFF", 9}}));
    setMailDialect(MailDialect::classic);
    ScriptedPeer peer({kLogin, "C: STAT | S: +OK 3 30", "C: LIST | S: +OK | S: 1 10 | S: 2 10 | S: 3 10 | S: .",
                       "C: UIDL | S: -ERR", "C: TOP 3 0 | S: +OK | S: Message-ID: <3@x> | S: .",
                       "C: TOP 2 0 | S: +OK | S: Message-ID: <2@x> | S: .",
                       "C: RETR 3 | S: +OK | S:  | S: new | S: .", "C: QUIT | S: -ERR"});
    const auto store = storeOf(std::make_shared<Account>(peer.port()));
    EXPECT_TRUE(fetch(*store));
    EXPECT_EQ(peer.firstSurprise(), "");
    EXPECT_THAT(bodies(), ElementsAre("new\n\n"));
    EXPECT_EQ(readSeenMessages(at("pop/.pop_messages_seen")),
              (SeenMessages{{"<2@x>", 2}, {"<3@x>", 3}, {"odd \x01 \xFF", 9}}));
    EXPECT_FALSE(fs::exists(at("pop/.pop_messages_deleted"))) << "nothing was";
}

/// The last fetch broke off between the list of what was seen and the QUIT with which a server deletes.
TEST_F(POP3Fetch, DeletesAgainWhatTheServerHasNotDeleted) {
    fs::create_directory(at("pop"));
    const SeenMessages seen = {{"a", 1}, {"b", 2}, {"renamed", 4}, {"twice", 3}};
    const auto seenPath = at("pop/.pop_messages_seen"), told = at("pop/.pop_messages_deleted");
    const auto login = kLogin + " | C: STAT | ",
               listing = login +
                         "S: +OK 6 66 | C: LIST | S: +OK | S: 1 11 | S: 2 22 | S: 3 33 | S: 4 33 | "
                         "S: 5 55 | S: 6 6 | S: . | C: UIDL | ";
    const auto withNames = listing +
                           "S: +OK | S: 1 a | S: 2 b | S: 3 twice | S: 4 twice | S: 5 unseen | "
                           "S: 6 renamed | S: . | C: TOP 5 0 | S: -ERR | C: RETR 5 | S: -ERR";
    // The sixth is known; below it nobody would look, were it not for what is to be deleted.
    auto byHeaders = listing + "S: -ERR";
    for (const std::string each : {"6 renamed", "1 a", "2 b", "3 twice", "4 twice", "5 unseen"})
        byHeaders +=
            " | C: TOP " + each.substr(0, 1) + " 0 | S: +OK | S: Message-ID: " + each.substr(2) + " | S: .";
    const std::string deletion = " | C: DELE 2 | S: +OK | C: QUIT | ";
    const Script script = {withNames + deletion + "S: -ERR | A", withNames + deletion + "S: +OK | A",
                           byHeaders + deletion + "S: +OK | A", login + "S: -ERR | C: QUIT | S: +OK | A",
                           login + "S: +OK 0 0 | C: QUIT | S: +OK"};
    setMailDialect(MailDialect::classic);
    ScriptedPeer peer(script);
    const auto account = std::make_shared<Account>(peer.port());
    account->deletes = true;
    const auto store = storeOf(account);
    const SeenMessages all = {{"b", 22}, {"renamed", 66}, {"twice", 33}, {"unseen", 55}};
    const struct {
        const char* why;
        SeenMessages before, after;
    } rows[] = {
        {"it was not confirmed", all, {{"b", 22}}},
        {"it was", {{"b", 22}}, {}},
        {"names of a server without identifiers", all, {}},
        {"nothing was listed", {{"gone", 1}}, {{"gone", 1}}},
        {"all is gone", {{"gone", 1}}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        ASSERT_TRUE(writeSeenMessages(seenPath, seen));
        ASSERT_TRUE(writeSeenMessages(told, row.before));
        EXPECT_TRUE(fetch(*store));
        EXPECT_EQ(fs::exists(told), !row.after.empty());
        EXPECT_EQ(readSeenMessages(told), row.after);
    }
    EXPECT_EQ(peer.firstSurprise(), "");
    EXPECT_THAT(log.take(), ElementsAre()) << "of files that need not be there";
}

TEST_F(POP3Fetch, ASpoolThatACrashLeftIsMadeGoodAndRouted) {
    const struct {
        const char* why;
        std::string left, repaired;
    } rows[] = {
        {"a piece of a line", mboxMessage("a") + "From b", mboxMessage("a") + "From b\n"},
        {"room that was never filled", mboxMessage("a") + std::string(2'000'000, '\0'), mboxMessage("a")},
        {"nothing but that", std::string(10, '\0'), ""},
        {"a piece of the first mark", "Fro", ""},
        {"in order", mboxMessage("a"), mboxMessage("a")},
    };
    const auto path = at("spoolfile");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        writeFile(path, row.left);
        EXPECT_TRUE(SpoolFile::repair(path));
        EXPECT_EQ(readFile(path), row.repaired);
    }
    writeFile(path, "what is that\n");
    EXPECT_TRUE(SpoolFile::repair(path));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(readFile(path + ".unreadable"), "what is that\n");
    // A server that cannot be reached keeps no mail from its mailbox.
    fs::create_directory(at("pop"));
    writeFile(at("pop/POPSpoolFile"), mboxMessage("a") + "From b");
    ScriptedPeer peer({"X"});
    const auto store = storeOf(std::make_shared<Account>(peer.port()));
    EXPECT_TRUE(fetch(*store));
    EXPECT_EQ(agent.said.size(), 1u);
    EXPECT_THAT(bodies(), Contains(HasSubstr("hello\n")));
}

}  // namespace
}  // namespace lorvale
