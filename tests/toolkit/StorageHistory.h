#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/support/StoredForm.h"

namespace brindle::testing {

/// What a storage should hold.
struct StorageModel {
    std::map<std::uint32_t, std::optional<std::string>> blocks;  // nullopt: no content one could rely on
    std::map<std::string, std::uint32_t> names;
};

/// The first difference between the storage and the model; empty if there is none.
std::string differenceFrom(const StorageModel& model, IAStorage& storage);

/// A random life of a storage, followed by a model.  The same seed on the same state gives the same life.
class StorageHistory {
public:
    StorageHistory(IAStorage& ofStorage, StorageModel start, unsigned seed)
        : random(seed), current(start), states{std::move(start)}, storage(ofStorage) {}

    void step();
    void commit();
    std::mt19937 random;
    StorageModel current;
    std::vector<StorageModel>
        states;                 // all that have been, or have begun to be, committed; the start is the first
    std::size_t committed = 0;  // the latest of them that surely was

private:
    void write();
    void name();
    void compact();
    template <class Call>
    void committing(Call call);
    std::uint32_t someBlock();
    bool isNamed(std::uint32_t id) const;

    IAStorage& storage;
};

}  // namespace brindle::testing
