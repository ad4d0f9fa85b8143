#pragma once
#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "lorvale/toolkit/storage/storage.h"
#include "tests/support/BTreeEntry.h"
#include "tests/support/MemoryStoreStream.h"
#include "toolkit/storage/BTree.h"

namespace brindle::testing {

using Model = std::map<std::string, std::string>;

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

/// All members, in the order in which the iterator gives them, but no more than `most`.
inline std::vector<std::pair<std::string, std::string>> MembersOf(IAOrderedStorableSet& set,
                                                                  std::size_t most = SIZE_MAX) {
    std::vector<std::pair<std::string, std::string>> members;
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
