/// A flat mailbox under programs that honour no lock: they shorten, overwrite, rename, replace and lengthen the
/// file at any moment.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <map>
#include <random>
#include <thread>

#include "tests/mail/stores/MboxRivals.h"
#include "tests/support/PlainMbox.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

/// Without the line ends at its end, where an appender may put more.
std::string_view withoutLineEnds(std::string_view bytes) {
    return bytes.substr(0, bytes.find_last_not_of('\n') + 1);
}

/// Whether these are bytes of one letter from its beginning on: all of them, or what a rival has left and
/// somebody has ended with newlines.  Where the rival has left less of the next letter than the mark by which a
/// letter is known, that counts as a last line of this one.
bool isOfOneLetter(std::string_view bytes) {
    bytes = withoutLineEnds(bytes);
    for (std::string_view line; bytes.size() > 10; bytes = withoutLineEnds(bytes)) {
        line = bytes.substr(bytes.rfind('\n') + 1);
        if (!std::string_view("From").starts_with(line)) break;
        bytes.remove_suffix(line.size());
    }
    if (bytes.size() < 12) return std::string_view("From m").starts_with(bytes.substr(0, 6));
    return letter(std::stoi(std::string(bytes.substr(6, 6))) - 100'000).starts_with(bytes);
}

/// Another program with a mailbox and without manners.
class Rival {
public:
    Rival(std::string path, std::uint64_t seed) : _path(std::move(path)), _random(seed) {}

    int pick(int below) { return static_cast<int>(_random() % static_cast<unsigned>(below)); }

    void act() {
        const auto bytes = fs::exists(_path) ? readFile(_path) : std::string();
        switch (pick(7)) {
            case 0:
                if (!bytes.empty()) fs::resize_file(_path, _random() % bytes.size());
                return;
            case 1: {  // as long as before, another letter
                const auto letters = messagesByPlainRule(bytes);
                if (letters.empty()) return;
                const auto old = letters[_random() % letters.size()];
                std::fstream file(_path, std::ios::in | std::ios::out);
                file.seekp(old.data() - bytes.data());
                if (old.size() == letter(0).size()) file << letter(_next++);
                return;
            }
            case 2:
                return write(bytes + (bytes.ends_with('\n') || bytes.empty() ? "" : "\n") + letter(_next++));
            case 3:
                if (fs::exists(_path)) fs::rename(_path, _path + ".away");
                return;
            case 4:
                if (fs::exists(_path + ".away")) fs::rename(_path + ".away", _path);
                return;
            default:
                std::ofstream(_path, std::ios::app)
                    << (bytes.ends_with('\n') || bytes.empty() ? "" : "\n") << letter(_next++);
        }
    }

private:
    void write(const std::string& bytes) {
        writeFile(_path + ".new", bytes);
        fs::rename(_path + ".new", _path);
    }

    const std::string _path;
    std::mt19937_64 _random;
    int _next = 1000;
};

/// One of our own programs at work: random steps on a store, with a look at everything that it is told.
class Owner {
public:
    Owner(std::string path, Rival& random) : _path(std::move(path)), _random(random) {}

    std::shared_ptr<BerkeleyMbox> store;
    int appended = 0, compacted = 0, refused = 0;
    bool knowsLetters = true;  // the rival writes whole ones
    std::string going;         // the bytes of the message that a compaction is to take out

    /// Reads a message; what is told must be right, and must stay what it was.
    std::string read(const std::shared_ptr<Message>& message) {
        const auto bytes = bytesOf(*message);
        if (bytes.starts_with('(')) return ++refused, bytes;
        EXPECT_TRUE(!knowsLetters || isOfOneLetter(bytes)) << bytes;
        EXPECT_EQ(_known.try_emplace(message, withoutLineEnds(bytes)).first->second, withoutLineEnds(bytes));
        return bytes;
    }

    void step() {
        if (!store || _random.pick(50) == 0) {
            store.reset();
            _known.clear();
            store = BerkeleyMbox::initWithPath(_path, true, false);
            if (!store) return;
        }
        const auto& all = store->allMessages();
        const auto some =
            all.empty() ? nullptr : all[static_cast<std::size_t>(_random.pick(static_cast<int>(all.size())))];
        switch (_random.pick(7)) {
            case 0:
                for (const auto& message : all) {
                    const auto subject = message->headers()->subject();
                    EXPECT_EQ(subject.find_first_not_of("0123456789"), std::string::npos) << subject;
                    message->setHeaders(nullptr);
                }
                return;
            case 1:
                if (some) read(some);
                return;
            case 2:
                checkMailbox(_path);
                return;
            case 3:
                store->syncAppendMessages({messageOf(letter(_next++))}, false);
                return;
            case 4:
                going = some ? read(some) : "";
                if (!going.starts_with("From ")) return going.clear();
                store->deleteMessage(some);
                store->doCompact();
                going.clear();
                store->undeleteLastDeletedMessages();
                return;
            case 5:
                return store->rebuildMessageLists();
            default:
                for (const auto& message : all) read(message);
        }
    }

    /// Whether a switch from the one to the other loses nothing but what was to go.
    void judgeSwitch(const std::string& before, const std::string& after) {
        if (going.empty()) {
            EXPECT_TRUE(after.starts_with(before)) << "an append has lost mail";
            ++appended;
            return;
        }
        // Of several with the same bytes it may be any one.
        std::vector<std::string> expected;
        for (const auto letter : messagesByPlainRule(before)) {
            if (withoutLineEnds(letter) != withoutLineEnds(going)) continue;
            const auto place = static_cast<std::size_t>(letter.data() - before.data());
            expected.push_back(std::string(before).erase(place, letter.size()));
        }
        EXPECT_THAT(expected, Contains(after)) << "compaction has taken out something else than\n" << going;
        ++compacted;
    }

private:
    const std::string _path;
    Rival& _random;
    int _next = 20'000;
    std::map<std::shared_ptr<Message>, std::string> _known;
};

TEST_F(MboxRivals, CanNeitherBreakNorFoolNorRobTheStore) {
    const auto seed = ::testing::UnitTest::GetInstance()->random_seed() + 1;
    SCOPED_TRACE(seed);
    Rival rival(path, static_cast<std::uint64_t>(seed));
    bool busy = false;
    SharedDisk disk(path, [&](auto) {
        if (busy && rival.pick(30) == 0) rival.act();
    });
    Owner owner(path, rival);
    disk.onSwitch = [&](const auto& before, const auto& after) { owner.judgeSwitch(before, after); };
    for (int step = 0; step < 1000 && !HasFailure(); ++step) {
        busy = step % 3 == 0;
        if (step % 100 == 0) writeFile(path, letter(1) + letter(2) + letter(3));
        owner.step();
        if (step % 10 != 0) continue;
        // Alone again, the store shows what is there, all of it.
        busy = false;
        if (!owner.store || !fs::exists(path)) continue;
        owner.store->rebuildMessageLists();
        const auto bytes = readFile(path);
        EXPECT_TRUE(std::ranges::equal(bytesOf(owner.store->allMessages()), messagesByPlainRule(bytes)))
            << "step " << step;
    }
    EXPECT_GT(owner.appended, 30);
    EXPECT_GT(owner.compacted, 10);
    EXPECT_GT(owner.refused, 0);
}

TEST_F(MboxRivals, ThatDeliverAllTheWhileHideOnlyWhatIsNotComplete) {
    const auto opened = [&](int pieces) {
        std::ofstream delivery(path, std::ios::app);
        SharedDisk disk(path, [&](auto) {
            if (pieces-- > 0) delivery << letter(4).substr(0, 100) << std::flush;
        });
        const auto store = BerkeleyMbox::initWithPath(path);
        return store ? bytesOf(store->allMessages()) : std::vector<std::string>{"(not opened)"};
    };
    EXPECT_THAT(opened(1000), ElementsAre(letter(1), letter(2), letter(3)));
    writeFile(path, letter(1));
    EXPECT_THAT(opened(1000), ElementsAre(letter(1))) << "an only message is not hidden";
    writeFile(path, letter(1));
    const auto sizeAfterFive = opened(5).size();
    EXPECT_EQ(sizeAfterFive, messagesByPlainRule(readFile(path)).size()) << "a delivery that is soon over";
}

TEST_F(MboxRivals, ThatOverwriteInPlaceAreFoundOut) {
    const auto store = BerkeleyMbox::initWithPath(path);
    const auto all = store->allMessages();
    std::fstream(path, std::ios::in | std::ios::out) << letter(9).substr(0, 90);  // the headers of the first
    EXPECT_FALSE(store->allHeadersForMessage(*all[0]));
    EXPECT_TRUE(store->bodyForMessage(*all[1]));
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("message 1 of the mailbox " + path)));
    EXPECT_TRUE(all[0]->headers()->subject().empty());
    EXPECT_TRUE(all[0]->bytesAreMissing());
    fs::rename(path, path + ".away");
    EXPECT_EQ(bytesOf(*all[1]), letter(2)) << "the file has gone, its bytes have not";
    fs::resize_file(path + ".away", letter(1).size() + 100);
    EXPECT_FALSE(store->bodyForMessage(*all[1]));
    store->rebuildMessageLists();
    EXPECT_EQ(store->allMessages(), all) << "mail that is between two names does not look gone";
}

TEST_F(MboxRivals, MakeNoGhostsOfMessages) {
    const auto source = BerkeleyMbox::initWithPath(path);
    auto bad = source->allMessages().toVector();  // of which one loses its headers, one its body, one its place
    std::fstream(path, std::ios::in | std::ios::out) << letter(9).substr(0, 90);
    fs::resize_file(path, letter(1).size() + 100);
    const auto closedPath = (folder / "closed").string();
    writeFile(closedPath, letter(5));
    const auto closed = BerkeleyMbox::initWithPath(closedPath);
    bad.push_back(closed->allMessages()[0]);
    closed->close();
    bad.push_back(messageOf("Subject: no empty line\n"));
    bad.push_back(std::make_shared<Message>());
    const auto target = BerkeleyMbox::initWithPath(std::string(folder / "target"), true, false);
    target->syncAppendMessages(bad, false);
    EXPECT_FALSE(fs::exists(folder / "target")) << "nothing to write, nothing written";
    bad.insert(bad.begin() + 2, messageOf(letter(7)));
    log.take();
    target->syncAppendMessages(bad, false);
    EXPECT_EQ(readFile(folder / "target"), letter(7));
    const auto lines = log.lines();
    EXPECT_EQ(std::ranges::count_if(lines, [](const auto& line) { return line.ends_with("is not appended"); }),
              6);
}

TEST_F(MboxRivals, ForDescriptorsLoseNothing) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "UBSan looks at objects through a pipe, and takes them for none without descriptors";
#endif
    for (const int free : {0, 1, 2, 3}) {
        writeFile(path, letter(1) + letter(2));
        const auto store = BerkeleyMbox::initWithPath(path);
        const auto message = messageOf(letter(3));
        rlimit before{};
        ::getrlimit(RLIMIT_NOFILE, &before);
        const int next = ::dup(0);
        ::close(next);
        auto tight = before;
        tight.rlim_cur = static_cast<rlim_t>(next + free);
        ::setrlimit(RLIMIT_NOFILE, &tight);
        store->syncAppendMessages({message}, false);
        const auto listed = bytesOf(store->allMessages());
        store->rebuildMessageLists();
        const auto again = bytesOf(store->allMessages());
        ::setrlimit(RLIMIT_NOFILE, &before);
        const auto afterAppend = readFile(path);
        EXPECT_EQ(afterAppend, letter(1) + letter(2) + (free > 0 ? letter(3) : "")) << free;
        EXPECT_TRUE(std::ranges::equal(listed, messagesByPlainRule(afterAppend))) << free;
        EXPECT_EQ(again, listed) << free;
    }
}

TEST_F(MboxRivals, CostOneReadForAllThatAListingAsksOfAMessage) {
    SharedDisk disk(path, [](auto) {});
    const auto store = BerkeleyMbox::initWithPath(path);
    disk.reads = 0;
    for (const auto& message : store->allMessages()) {
        EXPECT_FALSE(message->headers()->subject().empty());
        EXPECT_TRUE(message->headers()->knownDateReceived());
        EXPECT_FALSE(message->headers()->messageID().empty());
    }
    EXPECT_EQ(disk.reads, 3);
}

using MboxRivalsThreads = MboxRivals;

TEST_F(MboxRivalsThreads, ReadWhileTheMailboxIsRewritten) {
    const auto store = BerkeleyMbox::initWithPath(path);
    const auto known = store->allMessages();
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0, right = 0;
    {
        std::vector<std::jthread> readers;
        for (int reader = 0; reader < 3; ++reader) {
            readers.emplace_back([&] {
                while (!done) {
                    for (int i = 0; i < 3; ++i) {
                        const auto& message = known[static_cast<std::size_t>(i)];
                        const auto header = store->allHeadersForMessage(*message);
                        const auto body = store->bodyForMessage(*message);
                        const bool gone = i == 0 && (!header || !body);
                        const bool good =
                            header && body && header->toString() + body->toString() == letter(i + 1);
                        (gone || good ? right : wrong)++;
                    }
                }
            });
        }
        for (int round = 0; round < 20; ++round) {
            store->syncAppendMessages({messageOf(letter(9))}, false);
            store->deleteMessage(round == 10 ? known[0] : store->allMessages().back());
            store->doCompact();  // at round 10 the others move
        }
        done = true;
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(right, 100);
    EXPECT_EQ(readFile(path), letter(2) + letter(3) + letter(9));
}

TEST_F(MboxRivals, InAnotherProcessSendNoSignal) {
    const auto rivalProcess = ::fork();
    if (rivalProcess == 0) {
        for (Rival rival(path, 1);;) rival.act();
    }
    Rival random(path, 2);
    Owner owner(path, random);
    owner.knowsLetters = false;  // what the rival writes over may have moved since it looked
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (std::chrono::steady_clock::now() < end) owner.step();
    ::kill(rivalProcess, SIGKILL);
    ::waitpid(rivalProcess, nullptr, 0);
}

}  // namespace
}  // namespace lorvale
