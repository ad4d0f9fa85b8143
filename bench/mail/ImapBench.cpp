// A mailbox of an IMAP server on this machine, whose port LORVALE_IMAP_PORT names; bench/mail/imap.py starts
// one, fills it, and runs this.  "raw" sends the same commands and throws away what comes: nobody can be
// faster.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "lorvale/imap.h"
#include "lorvale/mime.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/socket.h"

namespace {

using namespace lorvale;
namespace fs = std::filesystem;

constexpr std::string_view kEnvelopes = "(UID RFC822.SIZE BODY.PEEK[HEADER.FIELDS (DATE SUBJECT FROM)])";
constexpr std::string_view kBodies = "(UID BODY.PEEK[])";

std::uint16_t serverPort() {
    const char* const named = std::getenv("LORVALE_IMAP_PORT");
    return static_cast<std::uint16_t>(named == nullptr ? 0 : std::atoi(named));
}

/// Sends the command and reads until its answer; how many bytes came.
std::size_t rawCommand(KTSocket& socket, const std::string& command) {
    constexpr std::size_t kLongestAnswer = 2000;
    socket.writeData("t " + command + "\r\n");
    std::size_t total = 0;
    for (std::string tail = "\r\n"; tail.rfind("\r\nt OK ") == std::string::npos;) {
        const auto data = socket.readAvailableData(256 * 1024);
        if (!data) return 0;
        total += data->size();
        tail += data->view().substr(data->size() - std::min(data->size(), kLongestAnswer));
        tail.erase(0, tail.size() - std::min(tail.size(), kLongestAnswer));
    }
    return total;
}

/// Connecting and logging in included, as for the mailboxes below.
void raw(benchmark::State& state, std::string_view items) {
    std::size_t size = 0;
    try {
        for (auto _ : state) {
            const auto socket = KTSocket::socket();
            std::string greeting;
            socket->connectToHost("127.0.0.1", serverPort());
            socket->readLine(greeting);
            for (const auto* command : {"LOGIN anna secret", "EXAMINE INBOX"}) rawCommand(*socket, command);
            size = rawCommand(*socket, "FETCH 1:* " + std::string(items));
        }
    } catch (const NamedException&) {
        return state.SkipWithError("no server");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

/// The user's inbox with a mirror of its own.
class Inbox {
public:
    explicit Inbox(IMAPCachePolicy policy) {
        setMailDialect(MailDialect::standard);
        _owner->policy = policy;
        startAnew();
    }
    ~Inbox() { fs::remove_all(_place); }
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    /// The old mirror stays until the end: disks are slow to make files where they have just removed some.
    void startAnew() {
        _folder = _place / (std::to_string(++_count) + ".imap");
        fs::create_directories(_folder);
        std::ofstream(_folder / "Info.plist")
            << "<plist><dict><key>IMAPMailboxPath</key><string>INBOX</string></dict></plist>";
    }
    /// In line with the server; null where that failed.
    std::shared_ptr<IMAPStore> open() const {
        auto store = IMAPStore::initWithPath(_folder.string(), true, false, _owner);
        if (!store) return nullptr;
        while (store->isSynchronizing())
            RunLoop::current()->runOnce(RunLoop::Clock::now() + std::chrono::milliseconds(1));
        return store->isSynchronized() && store->totalCount() > 0 ? store : nullptr;
    }

private:
    struct Owner : IMAPStoreAccount {
        std::string path() const override { return "/"; }
        std::optional<std::string> hostname() const override { return "127.0.0.1"; }
        std::optional<std::string> username() const override { return "anna"; }
        std::optional<std::string> password(bool) override { return "secret"; }
        IMAPCachePolicy cachePolicy() const override { return policy; }
        void prepareConnection(IMAPConnection& connection) const override { connection.setPort(serverPort()); }
        IMAPCachePolicy policy = IMAPCachePolicy::messagesAsRead;
    };
    const std::shared_ptr<Owner> _owner = std::make_shared<Owner>();
    const fs::path _place = fs::temp_directory_path() / ("imap_bench-" + std::to_string(::getpid()));
    fs::path _folder;
    int _count = 0;
};

/// From nothing to a list in line with the server, connecting included; with the bodies, to a full mirror.
void opening(benchmark::State& state, IMAPCachePolicy policy) {
    Inbox inbox(policy);
    for (auto _ : state) {
        const auto store = inbox.open();
        if (!store) return state.SkipWithError("not in line with the server");
        state.PauseTiming();
        const auto [done, total] = store->mirrorProgress();
        if (done != total) return state.SkipWithError("not all came");
        store->close();
        inbox.startAnew();
        state.ResumeTiming();
    }
}

/// And closing, with nothing new in between.
void openingAgain(benchmark::State& state) {
    const Inbox inbox(IMAPCachePolicy::messagesAsRead);
    if (const auto store = inbox.open()) store->close();
    for (auto _ : state) {
        const auto store = inbox.open();
        if (!store) return state.SkipWithError("not in line with the server");
        store->close();
    }
}

void marking(benchmark::State& state) {
    const Inbox inbox(IMAPCachePolicy::messagesAsRead);
    const auto store = inbox.open();
    if (!store) return state.SkipWithError("not in line with the server");
    for (bool isRead = false; auto _ : state) store->setRead(isRead = !isRead, store->allMessages());
    store->setRead(true, store->allMessages());
    store->close();
}

constexpr auto kMilliseconds = benchmark::kMillisecond;
BENCHMARK_CAPTURE(raw, envelopes, kEnvelopes)->Unit(kMilliseconds)->UseRealTime();
BENCHMARK_CAPTURE(opening, envelopes, IMAPCachePolicy::messagesAsRead)->Unit(kMilliseconds)->UseRealTime();
BENCHMARK(openingAgain)->Unit(kMilliseconds)->UseRealTime();
BENCHMARK(marking)->Unit(kMilliseconds)->UseRealTime();
BENCHMARK_CAPTURE(raw, bodies, kBodies)->Unit(kMilliseconds)->UseRealTime();
BENCHMARK_CAPTURE(opening, bodies, IMAPCachePolicy::allMessages)->Unit(kMilliseconds)->UseRealTime();

}  // namespace
