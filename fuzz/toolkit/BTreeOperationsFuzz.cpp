#include <span>

#include "fuzz/FuzzTarget.h"
#include "tests/support/BTreeFixture.h"

namespace {

using brindle::testing::Entry;
using brindle::testing::Model;
using brindle::testing::TreeInMemory;
using lorvale::fuzz::require;

/// Takes the input apart: numbers below a limit, as long as there are bytes.
class Choices {
public:
    explicit Choices(std::span<const std::uint8_t> input) : rest(input) {}
    bool Left() const { return !rest.empty(); }
    std::uint32_t Below(std::uint32_t limit) {
        if (rest.empty()) return 0;
        const std::uint32_t chosen = rest.front() % limit;
        rest = rest.subspan(1);
        return chosen;
    }

private:
    std::span<const std::uint8_t> rest;
};

std::string ChooseKey(Choices& choices) {
    const std::uint32_t number = choices.Below(200);
    return std::string(1 + number % 9, static_cast<char>('a' + number % 26)) + std::to_string(number);
}

void Apply(Choices& choices, TreeInMemory& t, Model& model) {
    const std::uint32_t kind = choices.Below(12);
    const std::string key = ChooseKey(choices);
    const Entry probe(key);
    if (kind < 6) {
        const std::string value(choices.Below(50), 'v');
        if (brindle::ObjectFits(Entry(key, value).StoreSize(), 100)) {
            require(t.Put(key, value) == model.contains(key));
            model[key] = value;
        }
    } else if (kind < 9) {
        require(t.tree->Remove(&probe) == (model.erase(key) == 1));
    } else if (kind == 9) {
        const auto next = t.tree->MakeIterator(&probe)->Next();
        const auto expected = model.lower_bound(key);
        require((next != nullptr) == (expected != model.end()));
        require(next == nullptr || Entry::KeyOf(next.get()) == expected->first);
    } else if (kind == 10) {
        t.tree->Purge();
    } else {
        t.FlushAndCommit();
        t.Open();
    }
}

}  // namespace

/// Any sequence of changes leaves a sound tree that holds what an ordered map would.
LORVALE_FUZZ_TARGET(input) {
    if (input.size() > 1500) return;
    TreeInMemory t(100);
    t.searchesStored = true;  // a comparison need not restore an object
    t.Make();
    Model model;
    for (Choices choices(lorvale::fuzz::bytesOf(input)); choices.Left();) Apply(choices, t, model);
    require(t.tree->Check().Sound() && t.tree->Count() == model.size());
    const auto members = brindle::testing::MembersOf(*t.tree);
    require(Model(members.begin(), members.end()) == model && members.size() == model.size());
}
