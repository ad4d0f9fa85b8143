#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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

/// Ranked search over documents in plain maps: the formulas as they are told in docs/search.md, one document
/// after the other, each looked at in full.  Shares no code with the accessor.
struct NaiveSearch {
    struct Doc {
        std::string name;
        Words words;
        std::uint32_t Length() const {
            std::uint32_t length = 0;
            for (const auto& [word, count] : words) length += count;
            return length;
        }
        double Norm() const { return std::min(std::floor(std::sqrt(4.0 * Length())) + 1, 255.0); }
    };
    using Hits = std::vector<std::pair<std::string, float>>;

    std::vector<std::vector<Doc>> indices;  // of each index its documents, by number
    std::uint32_t minTerms = 10, maxTerms = 50;
    bool coordinated = true;
    bool bm25 = false;
    std::function<bool(const std::string&)> isHit = [](const std::string&) { return true; };

    float Scale(const std::string& word) const {
        double all = 0, with = 0;
        for (const auto& docs : indices)
            for (const Doc& doc : docs) ++all, with += doc.words.contains(word) ? 1 : 0;
        return with == 0 ? 0 : static_cast<float>(1 + std::log(all / with));
    }
    static float Weight(float scale, std::uint32_t count) {
        return scale * static_cast<float>(std::log(count + 1.0));
    }
    float AverageNorm() const {
        double sum = 0, count = 0;
        for (const auto& docs : indices)
            for (const Doc& doc : docs) sum += doc.Norm(), ++count;
        return static_cast<float>(sum / count);
    }

    struct Term {
        float scale = 0, weight = 0;
    };
    using Query = std::map<std::string, Term>;
    /// The weights of a text's words: a vector of length 1; then only as many terms as the limits allow.
    Query QueryOf(std::string_view text) const {
        Query query;
        float squares = 0;
        for (const auto& [word, count] : WordsOf(text)) {
            // A text is counted once for each index.
            const auto times = count * static_cast<std::uint32_t>(indices.size());
            const float scale = Scale(word);
            if (scale == 0) continue;
            query[word] = {scale, Weight(scale, times)};
            squares = static_cast<float>(squares + double{query[word].weight} * query[word].weight);
        }
        for (auto& [word, term] : query)
            term.weight = static_cast<float>(term.weight / std::sqrt(double{squares}));
        std::vector<std::pair<float, std::string>> powers;
        for (const auto& [word, term] : query) {
            std::uint32_t most = 0;
            for (const auto& docs : indices)
                for (const Doc& doc : docs)
                    if (doc.words.contains(word)) most = std::max(most, doc.words.at(word));
            powers.emplace_back(-term.weight * Weight(term.scale, most), word);
        }
        std::sort(powers.begin(), powers.end());
        for (std::size_t i = Kept(static_cast<std::uint32_t>(powers.size())); i < powers.size(); ++i)
            query.erase(powers[i].second);
        return query;
    }
    std::uint32_t Kept(std::uint32_t n) const {
        if (n < minTerms) return n;
        if (n > 2 * maxTerms || minTerms >= maxTerms) return maxTerms;
        const float beyond = static_cast<float>(n - minTerms);
        return static_cast<std::uint32_t>(static_cast<float>(n) -
                                          beyond / static_cast<float>(4 * (maxTerms - minTerms)) * beyond);
    }

    Hits Search(std::string_view text, std::uint32_t maxHits) const {
        return SearchFor(QueryOf(text), maxHits);
    }
    /// The documents with at least one word of the query.
    Hits SearchFor(const Query& query, std::uint32_t maxHits) const {
        return Best(maxHits, query.size(), [&](const Doc& doc, float& sum, int& matches) {
            for (const auto& [word, term] : query) AddWord(word, query, doc, sum, matches);
            return matches > 0;
        });
    }
    /// What a word of the query gives to a document.
    void AddWord(const std::string& word, const Query& query, const Doc& doc, float& sum, int& matches) const {
        const auto found = doc.words.find(word);
        if (found == doc.words.end()) return;
        const Term& term = query.at(word);
        const double each = bm25 ? BM25(word, term, found->second, doc)
                                 : double{Weight(term.scale, found->second)} * term.weight;
        sum = static_cast<float>(sum + each);
        ++matches;
    }

    double BM25(const std::string& word, const Term& term, double freq, const Doc& doc) const {
        const auto lengthOf = [](const Doc& each) { return std::pow((each.Norm() - 0.5) / 2, 2); };
        double all = 0, with = 0, length = 0;
        for (const auto& docs : indices)
            for (const Doc& each : docs)
                ++all, with += each.words.contains(word) ? 1 : 0, length += lengthOf(each);
        const double idf = std::log(1 + (all - with + 0.5) / (with + 0.5));
        return term.weight / term.scale * idf * (freq * 2.2) /
               (freq + 1.2 * (0.25 + 0.75 * lengthOf(doc) / (length / all)));
    }

    /// The best documents of those that `match` takes, which gives the sum of weights and the number of words.
    template <class Match>
    Hits Best(std::uint32_t maxHits, std::size_t queryTerms, Match match) const {
        const auto factor = static_cast<float>(1 / std::pow(static_cast<double>(queryTerms) - 0.5, 2));
        const double average = AverageNorm();
        std::set<std::pair<float, std::string>> queue;  // the worst first
        for (const auto& docs : indices) {
            for (const Doc& doc : docs) {
                float sum = 0;
                int matches = 0;
                if (!match(doc, sum, matches)) continue;
                float score = sum;
                if (!bm25) {
                    score = static_cast<float>(sum / (double{0.55f} * (doc.Norm() / average) + double{0.45f}));
                    if (coordinated)
                        score = static_cast<float>((matches - 1.0) * factor +
                                                   double{static_cast<float>(score / average)});
                }
                if (queue.size() == maxHits && queue.begin()->first >= score) continue;
                if (!isHit(doc.name)) continue;
                const auto known = std::find_if(queue.begin(), queue.end(),
                                                [&](const auto& each) { return each.second == doc.name; });
                if (known != queue.end()) {
                    score = std::max(score, known->first);
                    queue.erase(known);
                } else if (queue.size() == maxHits) {
                    queue.erase(queue.begin());
                }
                queue.emplace(score, doc.name);
            }
        }
        Hits hits;
        for (auto at = queue.rbegin(); at != queue.rend(); ++at)
            hits.emplace_back(at->second, at->first / queue.rbegin()->first);
        return hits;
    }
};

}  // namespace brindle::testing
