// A directory mailbox of 100,000 messages: opening it, beside a plain read of its table; what a listed message
// takes in memory; appending to it.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "base/files/FileSystem.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/store.h"
#include "mail/stores/TableOfContents.h"

namespace {

using namespace lorvale;
namespace fs = std::filesystem;

constexpr std::size_t kMessages = 100'000;

/// Small messages with the senders and subjects of a mailing list, in a folder that goes with the process.
class Mailbox {
public:
    static const Mailbox& shared() {
        static const Mailbox mailbox;
        return mailbox;
    }
    const std::string& path() const { return _path; }
    std::string table() const { return _path + "/table_of_contents"; }
    static std::string letter(std::size_t number) {
        return formatText("From sender%d@mail.example Thu Aug 22 %02d:%02d:%02d 2002\n", number % 300,
                          number / 3600 % 24, number / 60 % 60, number % 60) +
               formatText("From: Some Sender <sender%d@mail.example>\nSubject: Re: [list] Topic %d\n\nYes.\n\n",
                          number % 300, number % 5000);
    }
    ~Mailbox() {
        std::error_code ignored;
        fs::remove_all(_folder, ignored);
    }

private:
    Mailbox() : _folder(fs::temp_directory_path() / ("lorvale-bench-" + std::to_string(::getpid()))) {
        setLogSink([](std::string_view) {});
        _path = (_folder / "box.mbox").string();
        fs::create_directories(_path);
        std::string bytes;
        for (std::size_t i = 0; i < kMessages; ++i) bytes += letter(i);
        const auto written = writeFileAtomically(_path + "/mbox", bytes);
        TarnMbox::initWithPath(_path)->close();
        if (!written) std::abort();
    }

    const fs::path _folder;
    std::string _path;
};

void BM_ReadTheTable(benchmark::State& state) {
    const auto& mailbox = Mailbox::shared();
    for (auto _ : state) benchmark::DoNotOptimize(FileSystem::current().readFile(mailbox.table())->size());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fs::file_size(mailbox.table())));
}
BENCHMARK(BM_ReadTheTable)->Unit(benchmark::kMillisecond);

void BM_LoadTheTable(benchmark::State& state) {
    const auto& mailbox = Mailbox::shared();
    for (auto _ : state) {
        const auto table = TableOfContents::initWithPath(mailbox.table());
        if (!table || table->count() != kMessages) state.SkipWithError("wrong count");
        state.PauseTiming();
        const auto gone = table->messages();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_LoadTheTable)->Unit(benchmark::kMillisecond);

void BM_Open(benchmark::State& state) {
    const auto& mailbox = Mailbox::shared();
    for (auto _ : state) {
        const auto store = TarnMbox::initWithPath(mailbox.path(), /*readOnly=*/true);
        if (!store || store->totalCount() != kMessages) state.SkipWithError("wrong count");
        state.PauseTiming();
        store->close();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_Open)->Unit(benchmark::kMillisecond)->MinTime(1);

std::size_t bytesInUse() {
    return ::mallinfo2().uordblks;
}

/// Bytes a message: of an open mailbox, and when the three listed headers of all were asked for.
void BM_MemoryOfAListedMessage(benchmark::State& state) {
    const auto& mailbox = Mailbox::shared();
    for (auto _ : state) {
        const auto before = bytesInUse();
        const auto store = TarnMbox::initWithPath(mailbox.path(), true);
        const auto opened = bytesInUse() - before;
        for (const auto& message : store->allMessages())
            benchmark::DoNotOptimize(message->headers()->cachedHeaders().size());
        state.counters["opened"] = static_cast<double>(opened) / kMessages;
        state.counters["listed"] = static_cast<double>(bytesInUse() - before) / kMessages;
    }
}
BENCHMARK(BM_MemoryOfAListedMessage)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_List(benchmark::State& state) {
    const auto store = TarnMbox::initWithPath(Mailbox::shared().path(), true);
    for (auto _ : state) {
        for (const auto& message : store->allMessages()) {
            benchmark::DoNotOptimize(message->headers()->sender());
            benchmark::DoNotOptimize(message->headers()->subject());
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kMessages));
}
BENCHMARK(BM_List)->Unit(benchmark::kMillisecond);

/// One message more in the lists; the syncs of the disk are left out by looking at the same for a small one.
void appendOne(benchmark::State& state, const std::string& path) {
    const auto store = TarnMbox::initWithPath(path, true, false);
    std::size_t number = 0;
    for (auto _ : state) {
        const auto message = Message::messageWithData(Data::copyOf(Mailbox::letter(number++)));
        if (!store->syncAppendMessages({message}, true)) state.SkipWithError("not appended");
    }
    store->close();
}
void BM_AppendOneToALargeMailbox(benchmark::State& state) {
    const auto copy = Mailbox::shared().path() + ".copy.mbox";
    if (!fs::exists(copy)) fs::copy(Mailbox::shared().path(), copy, fs::copy_options::recursive);
    appendOne(state, copy);
}
BENCHMARK(BM_AppendOneToALargeMailbox)->Unit(benchmark::kMillisecond)->Iterations(200);
void BM_AppendOneToASmallMailbox(benchmark::State& state) {
    appendOne(state, Mailbox::shared().path() + ".small.mbox");
}
BENCHMARK(BM_AppendOneToASmallMailbox)->Unit(benchmark::kMillisecond)->Iterations(200);

}  // namespace
