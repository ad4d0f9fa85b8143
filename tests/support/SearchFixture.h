#pragma once
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "lorvale/toolkit/retrieval.h"
#include "tests/support/IndexFixture.h"

namespace brindle::testing {

inline std::string NameOf(const RankedHit& hit) {
    return std::string(static_cast<const StringDoc*>(hit.GetDocument())->View());
}

inline std::string TermsOf(const RankedHit::Terms& terms) {
    std::string text;
    for (const auto& term : terms) text += std::string(term->View()) + " ";
    return text;
}

/// What is searched for at random, in the words of a History.
struct Question {
    Question(std::mt19937& random, int number, std::uint32_t mostWords) {
        for (auto left = 1 + random() % mostWords; left > 0; --left)
            text += "w" + std::to_string(random() % (1u << random() % 8)) + " ";
        maxHits = static_cast<std::uint32_t>(number % 3 == 0 ? 1000 : 1 + random() % 12);
    }
    std::string text;
    std::uint32_t maxHits;
};

/// An index of 200 documents, in which "all" is everywhere, w0 to w10 are in many, and each has a word of its
/// own: d103 is "all w3 w3 own3".
template <class Index>
class SearchTest : public ::testing::Test {
protected:
    SearchTest() {
        for (int i = 0; i < 200; ++i)
            texts["d" + std::to_string(100 + i)] =
                "all w" + std::to_string(i % 7) + " w" + std::to_string(i % 11) + " own" + std::to_string(i);
        t.MakeWithAll();
    }
    void Add(const std::string& name, const std::string& text) {
        texts[name] = text;
        t.Add(name);
        t.index->Flush();
    }

    Texts texts;
    InMemory<Index> t{texts};
};

}  // namespace brindle::testing
