// Indexing and searching beside Xapian and SQLite's FTS5, in one run on the same text: the bodies of the flat
// mailbox that LORVALE_MAILBOX names (a sample is in the shared data), repeated up to 10,000 documents.  Each
// engine cuts English suffixes and keeps no positions, but for FTS5, which keeps them as it comes.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench/toolkit/MailSample.h"
#include "lorvale/toolkit.h"

#ifdef HAVE_XAPIAN
#include <xapian.h>
#endif
#ifdef HAVE_SQLITE
#include <sqlite3.h>
#endif

namespace {

using namespace brindle;
namespace fs = std::filesystem;

fs::path folder() {
    static const fs::path path = [] {
        fs::path made = fs::temp_directory_path() / ("index_bench." + std::to_string(getpid()));
        fs::create_directories(made);
        return made;
    }();
    return path;
}

double bytesIn(const fs::path& path) {
    if (fs::is_regular_file(path)) return static_cast<double>(fs::file_size(path));
    double sum = 0;
    for (const auto& entry : fs::directory_iterator(path)) sum += bytesIn(entry.path());
    return sum;
}

enum class Kind { ranked, both, butNot };

class Lorvale {
public:
    Lorvale() : path(folder() / "lorvale") {
        const std::string words = std::string(LORVALE_SOURCE_DIR) + "/resources/";
        auto analysis = std::make_unique<EnglishAnalysis>((words + "EnglishStopwords").c_str(),
                                                          (words + "EnglishSubstitutions").c_str());
        fs::remove(path);
        storage = MakeFileStorage(path.c_str());
        storage->Initialize();
        index = std::make_unique<InvertedIndex>(storage.get(), std::make_unique<SampleCorpus>(),
                                                std::move(analysis));
        index->Initialize();
        if (const char* const budget = std::getenv("LORVALE_BUDGET"))
            index->SetBytesForUpdate(static_cast<std::uint32_t>(std::stoul(budget)));
    }
    void fill() {
        for (std::size_t i = 0; i < sample().texts.size(); ++i)
            index->AddDoc(std::make_unique<StringDoc>(std::to_string(i)));
        index->Flush();
        storage->Commit();
    }
    double size() {
        index->Compact();
        storage->Compact();
        storage->Commit();
        return bytesIn(path);
    }
    void prepare() {
        accessor = std::make_unique<InvertedAccessor>(index.get());
        accessor->Initialize();
    }
    std::size_t search(const std::string& query, Kind kind) {
        if (kind == Kind::ranked) return accessor->RankedSearch(query, {}, 100).size();
        std::string text = query;
        text[text.find(' ')] = kind == Kind::both ? '&' : '!';
        return accessor->RankedSearchBoolean(text, 100).size();
    }

private:
    fs::path path;
    std::unique_ptr<IAStorage> storage;
    std::unique_ptr<InvertedIndex> index;
    std::unique_ptr<InvertedAccessor> accessor;
};

#ifdef HAVE_XAPIAN
class XapianPeer {
public:
    XapianPeer() : path(folder() / "xapian"), db(path.string(), Xapian::DB_CREATE_OR_OVERWRITE) {}
    void fill() {
        Xapian::TermGenerator generator;
        generator.set_stemmer(Xapian::Stem("en"));
        for (std::size_t i = 0; i < sample().texts.size(); ++i) {
            Xapian::Document doc;
            generator.set_document(doc);
            generator.index_text_without_positions(sample().texts[i]);
            doc.set_data(std::to_string(i));
            db.add_document(doc);
        }
        db.commit();
    }
    double size() {
        const fs::path small = folder() / "xapian-compact";
        db.compact(small.string());
        return bytesIn(small);
    }
    void prepare() {
        reader = std::make_unique<Xapian::Database>(path.string());
        enquire = std::make_unique<Xapian::Enquire>(*reader);
    }
    std::size_t search(const std::string& query, Kind kind) {
        Xapian::QueryParser parser;
        parser.set_stemmer(Xapian::Stem("en"));
        parser.set_stemming_strategy(Xapian::QueryParser::STEM_SOME);
        std::string text = query;
        if (kind != Kind::ranked) text.replace(text.find(' '), 1, kind == Kind::both ? " AND " : " NOT ");
        enquire->set_query(parser.parse_query(text));
        const Xapian::MSet found = enquire->get_mset(0, 100);
        std::size_t bytes = 0;
        for (auto at = found.begin(); at != found.end(); ++at) bytes += at.get_document().get_data().size();
        return bytes > 0 ? found.size() : 0;
    }

private:
    fs::path path;
    Xapian::WritableDatabase db;
    std::unique_ptr<Xapian::Database> reader;
    std::unique_ptr<Xapian::Enquire> enquire;
};
#endif

#ifdef HAVE_SQLITE
class FTS5Peer {
public:
    FTS5Peer() : path(folder() / "fts5") {
        fs::remove(path);
        sqlite3_open(path.c_str(), &db);
        run("CREATE VIRTUAL TABLE t USING fts5(body, content='', tokenize='porter')");
    }
    FTS5Peer(const FTS5Peer&) = delete;
    FTS5Peer& operator=(const FTS5Peer&) = delete;
    ~FTS5Peer() { sqlite3_close(db); }
    void fill() {
        run("BEGIN");
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO t(rowid, body) VALUES(?, ?)", -1, &insert, nullptr);
        for (std::size_t i = 0; i < sample().texts.size(); ++i) {
            const std::string& text = sample().texts[i];
            sqlite3_bind_int64(insert, 1, static_cast<sqlite3_int64>(i + 1));
            sqlite3_bind_text(insert, 2, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        run("COMMIT");
    }
    double size() {
        run("INSERT INTO t(t) VALUES('optimize')");
        run("VACUUM");
        return bytesIn(path);
    }
    void prepare() {}
    std::size_t search(const std::string& query, Kind kind) {
        std::string text = query;
        const char* const sign = kind == Kind::ranked ? " OR " : kind == Kind::both ? " AND " : " NOT ";
        for (std::size_t at = text.find(' '); at != text.npos; at = text.find(' ', at + 4))
            text.replace(at, 1, sign);
        sqlite3_stmt* select = nullptr;
        sqlite3_prepare_v2(db, "SELECT rowid FROM t WHERE t MATCH ? ORDER BY rank LIMIT 100", -1, &select,
                           nullptr);
        sqlite3_bind_text(select, 1, text.c_str(), -1, SQLITE_STATIC);
        std::size_t count = 0;
        while (sqlite3_step(select) == SQLITE_ROW) ++count;
        sqlite3_finalize(select);
        return count;
    }

private:
    void run(const char* statement) { sqlite3_exec(db, statement, nullptr, nullptr, nullptr); }
    fs::path path;
    sqlite3* db = nullptr;
};
#endif

template <class Engine>
void BM_Index(benchmark::State& state) {
    if (sample().texts.empty()) return state.SkipWithError("LORVALE_MAILBOX names no mailbox");
    std::unique_ptr<Engine> engine;
    for (auto _ : state) {
        state.PauseTiming();
        engine = nullptr;
        engine = std::make_unique<Engine>();
        state.ResumeTiming();
        engine->fill();
    }
    const auto documents = static_cast<std::int64_t>(sample().texts.size());
    state.SetItemsProcessed(state.iterations() * documents);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sample().bytes));
    state.counters["size_of_text"] = engine->size() / static_cast<double>(sample().bytes);
}

/// One index for all its searches.
template <class Engine>
Engine& filled() {
    static Engine engine;
    static const bool once = (engine.fill(), engine.prepare(), true);
    benchmark::DoNotOptimize(once);
    return engine;
}

template <class Engine, Kind kind>
void BM_Search(benchmark::State& state) {
    if (sample().texts.empty()) return state.SkipWithError("LORVALE_MAILBOX names no mailbox");
    const auto& queries = sample().queries[state.range(0)];
    Engine& engine = filled<Engine>();
    std::vector<double> times;
    std::size_t found = 0;
    for (auto _ : state) {
        for (const std::string& query : queries) {
            const auto start = std::chrono::steady_clock::now();
            found += engine.search(query, kind);
            const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
            times.push_back(took.count());
        }
    }
    if (found == 0) state.SkipWithError("nothing found");
    std::ranges::sort(times);
    state.counters["median_us"] = times[times.size() / 2];
    state.counters["worst_us"] = times[times.size() * 99 / 100];
    state.counters["hits"] = static_cast<double>(found) / static_cast<double>(times.size());
}

#define ENGINE(Engine)                                                                                    \
    BENCHMARK_TEMPLATE(BM_Index, Engine)->Unit(benchmark::kMillisecond);                                  \
    BENCHMARK_TEMPLATE(BM_Search, Engine, Kind::ranked)->DenseRange(1, 3)->Unit(benchmark::kMillisecond); \
    BENCHMARK_TEMPLATE(BM_Search, Engine, Kind::both)->Arg(2)->Unit(benchmark::kMillisecond);             \
    BENCHMARK_TEMPLATE(BM_Search, Engine, Kind::butNot)->Arg(2)->Unit(benchmark::kMillisecond)

ENGINE(Lorvale);
#ifdef HAVE_XAPIAN
ENGINE(XapianPeer);
#endif
#ifdef HAVE_SQLITE
ENGINE(FTS5Peer);
#endif

}  // namespace
