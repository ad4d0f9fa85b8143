#include "tests/toolkit/StorageHistory.h"

#include <algorithm>

namespace brindle::testing {

namespace {

constexpr const char* kNames[] = {"", "a", "b", "IADefaultIndex", "name with a space", "\xFF\xFE"};

std::string randomBytes(std::mt19937& random) {
    static constexpr std::size_t kMost[] = {1, 33, 33, 200, 200, 5000, 20'000};
    std::string bytes(random() % kMost[random() % std::size(kMost)], '\0');
    auto byte = random();
    for (char& c : bytes) c = static_cast<char>(byte += 37);
    return bytes;
}

}  // namespace

std::string differenceFrom(const StorageModel& model, IAStorage& storage) {
    for (const char* name : kNames) {
        const auto found = model.names.find(name);
        const std::uint32_t id = found == model.names.end() ? 0 : found->second;
        if (storage.TOC_Get(name) != id) return std::string("the name ") + name;
    }
    try {
        for (const auto& [id, bytes] : model.blocks)
            if (bytes && readBlock(storage, id, bytes->size()) != *bytes)
                return "the bytes of block " + std::to_string(id);
    } catch (const IAException& failure) {
        return failure.What();
    }
    return "";
}

bool StorageHistory::isNamed(std::uint32_t id) const {
    return std::any_of(current.names.begin(), current.names.end(),
                       [&](const auto& it) { return it.second == id; });
}

std::uint32_t StorageHistory::someBlock() {
    if (current.blocks.empty() || random() % 4 == 0) {
        const std::uint32_t id = storage.Allocate();
        current.blocks[id] = std::nullopt;
        return id;
    }
    return std::next(current.blocks.begin(), static_cast<long>(random() % current.blocks.size()))->first;
}

void StorageHistory::write() {
    const std::uint32_t id = someBlock();
    const std::string bytes = randomBytes(random);
    current.blocks[id] = std::nullopt;
    writeBlock(storage, id, bytes);
    current.blocks[id] = bytes;
}

void StorageHistory::name() {
    const char* const name = kNames[random() % std::size(kNames)];
    if (random() % 3 == 0) {
        const auto id = current.names.contains(name) ? current.names[name] : 0;
        if (storage.RemoveNamedBlock(name) != (id != 0)) throw std::logic_error("RemoveNamedBlock");
        current.names.erase(name);
        current.blocks.erase(id);
        return;
    }
    const std::uint32_t id = storage.GetNamedBlock(name);
    if (current.names.emplace(name, id).second) current.blocks[id] = std::nullopt;
    if (current.names[name] != id) throw std::logic_error("GetNamedBlock");
}

/// What a failure leaves may be the last state or this one.  A block of its own tells the states apart, in
/// which unwritten blocks look like freed ones.
template <class Call>
void StorageHistory::committing(Call call) {
    const std::uint32_t id = storage.GetNamedBlock("state");
    current.names["state"] = id;
    current.blocks[id] = std::nullopt;
    const auto number = std::to_string(states.size());
    writeBlock(storage, id, number);
    current.blocks[id] = number;
    states.push_back(current);
    call();
    committed = states.size() - 1;
}

void StorageHistory::commit() {
    committing([&] { storage.Commit(); });
}

/// Compacting commits if it moves anything.
void StorageHistory::compact() {
    const std::size_t before = committed;
    committing([&] { storage.Compact(); });
    committed = before;
}

void StorageHistory::step() {
    const auto choice = random() % 20;
    if (choice < 12) return write();
    if (choice < 14) return name();
    if (choice == 14) return compact();
    if (choice < 18) return commit();
    const std::uint32_t id = someBlock();
    if (isNamed(id)) return;
    storage.Deallocate(id);
    current.blocks.erase(id);
}

}  // namespace brindle::testing
