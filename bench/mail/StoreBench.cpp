// Opening, listing, sorting and appending with a flat mailbox: the one that LORVALE_MAILBOX names, else one
// made here.  The scan is to be held against the walk over the line ends in the same run.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "base/files/FileSystem.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/store.h"
#include "mail/stores/MboxNumbers.h"
#include "mail/stores/MboxScan.h"

namespace {

using namespace lorvale;
namespace fs = std::filesystem;

/// 4,000 messages of some 5 KB, as varied as a listing needs, the same in every run.
std::string madeMailbox() {
    std::mt19937 random(1);
    std::string bytes;
    for (unsigned i = 0; i < 4000; ++i) {
        const auto sender = "sender" + std::to_string(random() % 300);
        bytes +=
            formatText("From %@@mail.example Thu Aug 22 %02d:46:%02d 2002\n", sender, random() % 24, i % 60);
        bytes += formatText("Received: from a.example\n\tby b.example with ESMTP id %d\n", random());
        bytes += formatText("From: \"%@\" <%@@mail.example>\nTo: list@mail.example\n", sender, sender);
        bytes += formatText("Subject: Re: [list] Topic %d\n", random() % 500);
        bytes += formatText("Date: Thu, 22 Aug 2002 %02d:46:%02d +0100\n\n", random() % 24, i % 60);
        for (auto lines = random() % 150; lines > 0; --lines) {
            bytes.append(20 + random() % 50, 'a');
            bytes += '\n';
        }
        bytes += '\n';
    }
    return bytes;
}

/// The mailbox of the run, in a folder of its own that goes with the process.
class Mailbox {
public:
    static const Mailbox& shared() {
        static const Mailbox mailbox;
        return mailbox;
    }
    const std::string& path() const { return _path; }
    const std::string& bytes() const { return _bytes; }
    std::string pathBeside(std::string_view name) const { return (_folder / name).string(); }
    ~Mailbox() {
        std::error_code ignored;
        fs::remove_all(_folder, ignored);
    }

private:
    Mailbox() : _folder(fs::temp_directory_path() / ("lorvale-bench-" + std::to_string(::getpid()))) {
        setLogSink([](std::string_view) {});
        fs::create_directory(_folder);
        _path = pathBeside("mailbox");
        if (const char* const named = std::getenv("LORVALE_MAILBOX"); named != nullptr) {
            fs::copy_file(named, _path);
        } else {
            std::ofstream(_path, std::ios::binary) << madeMailbox();
        }
        _bytes = FileSystem::current().readFile(_path).value_or(Data()).toString();
    }

    fs::path _folder;
    std::string _path, _bytes;
};

void countBytes(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(Mailbox::shared().bytes().size()));
}

std::size_t lineEnds(std::string_view bytes) {
    std::size_t count = 0;
    while (!bytes.empty()) {
        const void* const end = std::memchr(bytes.data(), '\n', bytes.size());
        if (end == nullptr) break;
        bytes.remove_prefix(static_cast<std::size_t>(static_cast<const char*>(end) - bytes.data()) + 1);
        ++count;
    }
    return count;
}

void BM_WalkLineEndsInMemory(benchmark::State& state) {
    const auto& bytes = Mailbox::shared().bytes();
    for (auto _ : state) benchmark::DoNotOptimize(lineEnds(bytes));
    countBytes(state);
}
BENCHMARK(BM_WalkLineEndsInMemory)->Unit(benchmark::kMillisecond);

void BM_WalkLineEndsOfTheMappedFile(benchmark::State& state) {
    for (auto _ : state) {
        const auto bytes = FileSystem::current().mapFile(Mailbox::shared().path());
        benchmark::DoNotOptimize(lineEnds(bytes->view()));
    }
    countBytes(state);
}
BENCHMARK(BM_WalkLineEndsOfTheMappedFile)->Unit(benchmark::kMillisecond);

void BM_ScanInMemory(benchmark::State& state) {
    const auto& bytes = Mailbox::shared().bytes();
    for (auto _ : state) benchmark::DoNotOptimize(mboxEntries(bytes).size());
    countBytes(state);
}
BENCHMARK(BM_ScanInMemory)->Unit(benchmark::kMillisecond);

void BM_ScanOfTheMappedFile(benchmark::State& state) {
    for (auto _ : state) {
        const auto bytes = FileSystem::current().mapFile(Mailbox::shared().path());
        benchmark::DoNotOptimize(mboxEntries(bytes->view()).size());
    }
    countBytes(state);
}
BENCHMARK(BM_ScanOfTheMappedFile)->Unit(benchmark::kMillisecond);

/// The way that a mailbox is opened: copying the bytes is the price of surviving a file that gets shorter.
void BM_ScanOfTheFileReadInBlocks(benchmark::State& state) {
    const auto file = FileSystem::current().openForReading(Mailbox::shared().path());
    std::vector<char> block(kMboxBlock);
    for (auto _ : state) {
        std::size_t found = 0;
        MboxScanner scanner([&found](const MboxEntry&) { ++found; });
        while (const auto count = file->readInto(block, scanner.size()).value_or(0))
            scanner.add({block.data(), count});
        scanner.finish();
        benchmark::DoNotOptimize(found);
    }
    countBytes(state);
}
BENCHMARK(BM_ScanOfTheFileReadInBlocks)->Unit(benchmark::kMillisecond);

void BM_Open(benchmark::State& state) {
    const auto& mailbox = Mailbox::shared();
    const auto expected = mboxEntries(mailbox.bytes()).size();
    for (auto _ : state) {
        const auto store = BerkeleyMbox::initWithPath(mailbox.path(), true);
        if (!store || store->totalCount() != expected) state.SkipWithError("wrong count");
    }
    countBytes(state);
}
BENCHMARK(BM_Open)->Unit(benchmark::kMillisecond);

void BM_ListHeaders(benchmark::State& state) {
    const auto store = BerkeleyMbox::initWithPath(Mailbox::shared().path(), true);
    for (auto _ : state) {
        for (const auto& message : store->allMessages()) {
            benchmark::DoNotOptimize(message->headers()->sender());
            benchmark::DoNotOptimize(message->headers()->subject());
            message->setHeaders(nullptr);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(store->totalCount()));
}
BENCHMARK(BM_ListHeaders)->Unit(benchmark::kMillisecond);

void sortBy(benchmark::State& state, std::string_view order) {
    const auto store = BerkeleyMbox::initWithPath(Mailbox::shared().path(), true);
    for (auto _ : state) {
        store->setSortOrder(order);
        state.PauseTiming();
        store->setSortOrder(MessageStoreSortByNumber);
        for (const auto& message : store->allMessages()) message->setHeaders(nullptr);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(store->totalCount()));
}
BENCHMARK_CAPTURE(sortBy, subject, MessageStoreSortByTitle)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(sortBy, from, MessageStoreSortByAuthor)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(sortBy, date, MessageStoreSortByCreationDate)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(sortBy, size, MessageStoreSortBySize)->Unit(benchmark::kMillisecond);

void BM_AppendAll(benchmark::State& state) {
    const auto& mailbox = Mailbox::shared();
    const auto source = BerkeleyMbox::initWithPath(mailbox.path(), true);
    const auto path = mailbox.pathBeside("target");
    for (auto _ : state) {
        fs::remove(path);
        const auto target = BerkeleyMbox::initWithPath(path, true, false);
        target->syncAppendMessages(source->allMessages(), false);
        if (target->totalCount() != source->totalCount()) state.SkipWithError("wrong count");
    }
    countBytes(state);
}
BENCHMARK(BM_AppendAll)->Unit(benchmark::kMillisecond);

void BM_CompactAwayEveryOther(benchmark::State& state) {
    const auto& mailbox = Mailbox::shared();
    const auto path = mailbox.pathBeside("compacted");
    for (auto _ : state) {
        state.PauseTiming();
        std::ofstream(path, std::ios::binary) << mailbox.bytes();
        const auto store = BerkeleyMbox::initWithPath(path);
        std::vector<std::shared_ptr<Message>> odd;
        for (std::size_t i = 1; i < store->totalCount(); i += 2) odd.push_back(store->allMessages()[i]);
        store->deleteMessages(odd);
        state.ResumeTiming();
        store->doCompact();
    }
    countBytes(state);
}
BENCHMARK(BM_CompactAwayEveryOther)->Unit(benchmark::kMillisecond);

}  // namespace
