#pragma once
/// Three ordered stores under one small interface, for the benchmarks: ours, LMDB and LevelDB.
///
/// Each holds records of a 12-byte key and a 12-byte value.  All are durable at a Commit(): what it wrote has
/// reached the device.  Reading goes through a store that was opened for it.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/storable.h"
#include "lorvale/toolkit/storage/storage.h"

#ifdef HAVE_LMDB
#include <lmdb.h>
#endif
#ifdef HAVE_LEVELDB
#include <leveldb/cache.h>
#include <leveldb/db.h>
#include <leveldb/write_batch.h>
#endif

namespace brindle::bench {

constexpr std::size_t kField = 12;
constexpr std::size_t kCacheBytes = std::size_t{32} << 20;  // what each store may use beyond the system's own
using Field = std::array<char, kField>;

inline void Require(bool holds) {
    if (!holds) std::abort();
}

/// The record of our set: no memory beyond itself.
class Record final : public IAOrderedStorable {
public:
    Record() = default;
    Record(const Field& recordKey, const Field& recordValue) : key(recordKey), value(recordValue) {}
    std::unique_ptr<IAStorable> DeepCopy() const override { return std::make_unique<Record>(key, value); }
    std::uint32_t StoreSize() const override { return 2 * kField; }
    void Store(IAOutputBlock* output) const override {
        output->WriteBuffer(key.data(), kField);
        output->WriteBuffer(value.data(), kField);
    }
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override {
        auto made = std::make_unique<Record>();
        input->ReadBuffer(made->key.data(), kField);
        input->ReadBuffer(made->value.data(), kField);
        return made;
    }
    bool LessThan(const IAOrderedStorable* other) const override {
        return std::memcmp(key.data(), static_cast<const Record*>(other)->key.data(), kField) < 0;
    }
    bool Equal(const IAOrderedStorable* other) const override {
        return std::memcmp(key.data(), static_cast<const Record*>(other)->key.data(), kField) == 0;
    }
    int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* other) const override {
        Require(stored.size() == 2 * kField);
        return std::memcmp(stored.data(), static_cast<const Record*>(other)->key.data(), kField);
    }
    std::uint32_t StoredSize(std::span<const std::uint8_t>) const override { return 2 * kField; }

    Field key{};
    Field value{};
};

class OurStore {
public:
    static constexpr const char* kName = "lorvale";
    OurStore(const std::filesystem::path& folder, bool make) {
        const std::filesystem::path file = folder / "tree";
        storage = MakeFileStorage(file.c_str());
        set = IAMakeOrderedStorableSet(std::make_unique<Record>());
        if (make) {
            storage->Initialize();
            set->Initialize(storage.get(), storage->AllocateNamedBlock("tree"), false);
        } else {
            storage->Open(false);
            set->Open(storage.get(), storage->TOC_Get("tree"), false, false);
        }
    }
    void Put(const Field& key, const Field& value) { set->Put(std::make_unique<Record>(key, value)); }
    void Commit() {
        set->Flush();
        storage->Commit();
    }
    char Get(const Field& key) {
        const Record probe(key, {});
        const auto found = set->Get(&probe);
        Require(found != nullptr);
        return static_cast<Record&>(*found).value[0];
    }
    template <class Visit>
    void Scan(Visit visit) {
        const auto iterator = set->MakeIterator();
        while (const auto next = iterator->Next()) visit(static_cast<Record&>(*next).value[0]);
    }

private:
    std::unique_ptr<IAStorage> storage;
    std::unique_ptr<IAOrderedStorableSet> set;
};

#ifdef HAVE_LMDB
class LmdbStore {
public:
    static constexpr const char* kName = "lmdb";
    LmdbStore(const std::filesystem::path& folder, bool make) : writing(make) {
        Require(mdb_env_create(&env) == 0);
        Require(mdb_env_set_mapsize(env, std::size_t{1} << 30) == 0);
        Require(mdb_env_open(env, folder.c_str(), writing ? 0 : MDB_RDONLY, 0600) == 0);
        Begin();
        Require(mdb_dbi_open(transaction, nullptr, 0, &table) == 0);
    }
    ~LmdbStore() {
        mdb_txn_abort(transaction);
        mdb_env_close(env);
    }
    LmdbStore(const LmdbStore&) = delete;
    LmdbStore& operator=(const LmdbStore&) = delete;

    void Put(const Field& key, const Field& value) {
        MDB_val k = Value(key), v = Value(value);
        Require(mdb_put(transaction, table, &k, &v, 0) == 0);
    }
    void Commit() {
        Require(mdb_txn_commit(transaction) == 0);
        Begin();
    }
    char Get(const Field& key) {
        MDB_val k = Value(key), v;
        Require(mdb_get(transaction, table, &k, &v) == 0);
        return *static_cast<const char*>(v.mv_data);
    }
    template <class Visit>
    void Scan(Visit visit) {
        MDB_cursor* cursor = nullptr;
        Require(mdb_cursor_open(transaction, table, &cursor) == 0);
        for (MDB_val k, v; mdb_cursor_get(cursor, &k, &v, MDB_NEXT) == 0;)
            visit(*static_cast<const char*>(v.mv_data));
        mdb_cursor_close(cursor);
    }

private:
    static MDB_val Value(const Field& field) { return {kField, const_cast<char*>(field.data())}; }
    void Begin() { Require(mdb_txn_begin(env, nullptr, writing ? 0 : MDB_RDONLY, &transaction) == 0); }

    const bool writing;
    MDB_env* env = nullptr;
    MDB_txn* transaction = nullptr;
    MDB_dbi table = 0;
};
#endif

#ifdef HAVE_LEVELDB
class LevelStore {
public:
    static constexpr const char* kName = "leveldb";
    LevelStore(const std::filesystem::path& folder, bool make) : cache(leveldb::NewLRUCache(kCacheBytes)) {
        leveldb::Options options;
        options.create_if_missing = make;
        options.compression = leveldb::kNoCompression;
        options.block_cache = cache.get();
        leveldb::DB* opened = nullptr;
        Require(leveldb::DB::Open(options, folder / "level", &opened).ok());
        db.reset(opened);
    }
    void Put(const Field& key, const Field& value) {
        batch.Put(Value(key), Value(value));
        if (++batched % 1000 == 0) Write(false);
    }
    void Commit() { Write(true); }
    char Get(const Field& key) {
        Require(db->Get({}, Value(key), &found).ok());
        return found[0];
    }
    template <class Visit>
    void Scan(Visit visit) {
        const std::unique_ptr<leveldb::Iterator> at(db->NewIterator({}));
        for (at->SeekToFirst(); at->Valid(); at->Next()) visit(at->value()[0]);
    }

private:
    static leveldb::Slice Value(const Field& field) { return {field.data(), kField}; }
    void Write(bool sync) {
        leveldb::WriteOptions options;
        options.sync = sync;
        Require(db->Write(options, &batch).ok());
        batch.Clear();
    }

    std::unique_ptr<leveldb::Cache> cache;
    std::unique_ptr<leveldb::DB> db;
    leveldb::WriteBatch batch;
    std::size_t batched = 0;
    std::string found;
};
#endif

}  // namespace brindle::bench
