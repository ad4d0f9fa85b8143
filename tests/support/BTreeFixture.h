#pragma once
#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "lorvale/toolkit/storage.h"
#include "tests/support/MemoryStoreStream.h"
#include "toolkit/storage/BTree.h"

namespace brindle::testing {

/// A member of a set for tests: a key, by which it is ordered, and a value, both of any bytes.
/// Stored as the length of each in a variable-length integer, and its bytes.
class Entry : public IAOrderedStorable {
public:
    Entry() = default;
    explicit Entry(std::string_view entryKey, std::string_view entryValue = "")
        : key(entryKey), value(entryValue) {}

    std::unique_ptr<IAStorable> DeepCopy() const override { return std::make_unique<Entry>(key, value); }
    std::uint32_t StoreSize() const override { return StoredTextSize(key) + StoredTextSize(value); }
    void Store(IAOutputBlock* output) const override {
        for (const std::string* text : {&key, &value}) {
            VInt32Write(static_cast<std::uint32_t>(text->size()), output);
            output->WriteBuffer(text->data(), static_cast<std::uint32_t>(text->size()));
        }
    }
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override {
        auto made = std::make_unique<Entry>();
        for (std::string* text : {&made->key, &made->value}) {
            const std::uint32_t size = VInt32Read(input);
            IAAssertion(size <= input->Remaining(), "text past the end of its block", StorePastBlockEnd);
            text->resize(size);
            input->ReadBuffer(text->data(), size);
        }
        return made;
    }
    bool LessThan(const IAOrderedStorable* other) const override { return key < KeyOf(other); }
    bool Equal(const IAOrderedStorable* other) const override { return key == KeyOf(other); }

    static const std::string& KeyOf(const IAOrderedStorable* object) {
        return static_cast<const Entry*>(object)->key;
    }

    std::string key;
    std::string value;

private:
    static std::uint32_t StoredTextSize(const std::string& text) {
        const auto size = static_cast<std::uint32_t>(text.size());
        return VInt32Size(size) + size;
    }
};

/// A prototype that finds entries in their stored form without restoring them.
class StoredEntry final : public Entry {
public:
    int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* other) const override {
        return TakeText(stored).compare(KeyOf(other));
    }
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override {
        const std::size_t whole = stored.size();
        TakeText(stored);
        TakeText(stored);
        return static_cast<std::uint32_t>(whole - stored.size());
    }

private:
    static std::string_view TakeText(std::span<const std::uint8_t>& from) {
        const std::uint32_t size = VInt32Read(from);
        IAAssertion(size <= from.size(), "text past the end of its block", StorePastBlockEnd);
        const std::string_view text(reinterpret_cast<const char*>(from.data()), size);
        from = from.subspan(size);
        return text;
    }
};

using Model = std::map<std::string, std::string>;
using Members = std::vector<std::pair<std::string, std::string>>;

/// A storage in memory with one tree in it, whose header is the named block "tree".
class TreeInMemory {
public:
    explicit TreeInMemory(std::uint32_t pageSize = IADiskBlockSize, std::shared_ptr<Bytes> onBytes = nullptr)
        : bytes(onBytes != nullptr ? std::move(onBytes) : std::make_shared<Bytes>()), treePageSize(pageSize) {}

    void Make() { Make(std::make_unique<MemoryStoreStream>(bytes)); }
    void Make(std::unique_ptr<IAStoreStream> stream) {
        Attach(std::move(stream));
        storage->Initialize();
        header = storage->AllocateNamedBlock("tree");
        tree->Initialize(storage.get(), header, false);
    }
    void Open(bool writable = true) { Open(std::make_unique<MemoryStoreStream>(bytes), writable); }
    void Open(std::unique_ptr<IAStoreStream> stream, bool writable = true) {
        Attach(std::move(stream));
        storage->Open(writable);
        header = storage->TOC_Get("tree");
        tree->Open(storage.get(), header, writable, false);
    }
    void Attach(std::unique_ptr<IAStoreStream> stream) {
        tree.reset();
        storage = IAMakeStorage(std::move(stream));
        std::unique_ptr<IAOrderedStorable> prototype = std::make_unique<Entry>();
        if (searchesStored) prototype = std::make_unique<StoredEntry>();
        tree = std::make_unique<BTree>(std::move(prototype), treePageSize);
    }
    void FlushAndCommit() {
        tree->Flush();
        storage->Commit();
    }
    bool Put(std::string_view key, std::string_view value = "") {
        return tree->Put(std::make_unique<Entry>(key, value));
    }

    bool searchesStored = false;  // from the next tree on, objects are found in their stored form
    std::shared_ptr<Bytes> bytes;
    std::uint32_t header = 0;
    std::unique_ptr<IAStorage> storage;
    std::unique_ptr<BTree> tree;  // after the storage, which it uses to the end

private:
    std::uint32_t treePageSize;
};

/// What the committed state of a storage consists of, wherever else the file holds garbage: the file header and
/// the space of every block, one behind the other.
inline Bytes LiveBytes(IAStorage& storage, const Bytes& file) {
    Bytes live(file.begin(), file.begin() + 16);
    const auto add = [&live, &file](std::size_t begin, std::size_t size) {
        const std::size_t end = std::min(begin + size, file.size());
        for (std::size_t at = begin; at < end; ++at) live.push_back(file[at]);
    };
    const auto word = [&file](std::size_t at) {
        return std::uint32_t{file[at]} << 24 | std::uint32_t{file[at + 1]} << 16 |
               std::uint32_t{file[at + 2]} << 8 | file[at + 3];
    };
    const std::uint32_t ids = word(word(4));
    add(word(4), word(8));
    const IALock lock(storage.GetMutex());
    for (std::uint32_t id = 1; id < ids; ++id) {
        try {
            add(storage.GetReadAddress(id), storage.GetBlockSize(id));
        } catch (const IAException&) {
            live.push_back(0);  // not in use
        }
    }
    return live;
}

inline Members MembersOf(const Model& model) {
    return {model.begin(), model.end()};
}

/// All members, in the order in which the iterator gives them, but no more than `most`.
inline Members MembersOf(IAOrderedStorableSet& set, std::size_t most = SIZE_MAX) {
    Members members;
    const auto iterator = set.MakeIterator();
    while (members.size() < most) {
        const auto next = iterator->Next();
        if (next == nullptr) break;
        members.emplace_back(static_cast<Entry&>(*next).key, static_cast<Entry&>(*next).value);
    }
    return members;
}

/// Uses everything a tree offers on a storage of arbitrary bytes, as far as it goes.  Lets nothing out but what
/// is not an IAException.  The tree is the named block "tree", or else block 1.
inline void UseTreeInDamagedStorage(Bytes damaged) {
    const auto bytes = std::make_shared<Bytes>(std::move(damaged));
    const std::function<void(TreeInMemory&)> uses[] = {
        [](TreeInMemory& t) { MembersOf(*t.tree); },
        [](TreeInMemory& t) {
            for (const char* key : {"", "a", "key05", "m", "zzz"}) {
                const Entry entry(key);
                t.tree->Get(&entry);
                t.tree->PositionEstimate(&entry);
                t.tree->MakeIterator(&entry)->Next();
            }
        },
        [](TreeInMemory& t) {
            for (const char* key : {"key03", "b", "\xFF"}) t.Put(key, "twelve bytes");
            t.FlushAndCommit();
        },
        [](TreeInMemory& t) {
            for (int i = 0; i < 40; ++i) {
                const auto first = t.tree->MakeIterator()->Next();
                if (first == nullptr || !t.tree->Remove(first.get())) break;
            }
            t.tree->Purge();
            t.FlushAndCommit();
        },
        [](TreeInMemory& t) { VerifyBTree(*t.storage, t.header, Entry()); },
        [](TreeInMemory& t) {
            t.tree->Destroy();
            t.storage->Commit();
        },
    };
    for (const auto& use : uses) {
        TreeInMemory t(IADiskBlockSize, std::make_shared<Bytes>(*bytes));
        try {
            t.Attach(std::make_unique<MemoryStoreStream>(t.bytes));
            t.storage->Open(true);
            t.header = t.storage->TOC_Get("tree");
            if (t.header == 0) t.header = 1;
            t.tree->Open(t.storage.get(), t.header, true, false);
            use(t);
        } catch (const IAException&) {
        }
    }
}

}  // namespace brindle::testing
