#pragma once
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/IndexFixture.h"

namespace brindle::testing {

/// Random changes of an index beside a model of plain maps.  The texts of all names there may ever be are drawn
/// first; `indexed` says which name stands for which of them.
template <class Index>
class History {
public:
    static constexpr bool kHasLists = std::is_base_of_v<InvertedIndex, Index>;
    static constexpr bool kHasVectors = std::is_base_of_v<VectorIndex, Index>;

    explicit History(unsigned seed, std::uint32_t bytesForUpdate = 3'000)
        : budget(bytesForUpdate), random(seed) {
        for (int i = 0; i < 400; ++i) texts["d" + std::to_string(i)] = RandomText();
        subject.Make();
        subject.index->SetBytesForUpdate(budget);
    }

    /// One word in many documents, some in some, most in few; more than 128 documents reach the block chains.
    std::string RandomText() {
        std::string text;
        const auto words = random() % 12 == 0 ? 0 : 1 + random() % 14;
        for (std::uint32_t i = 0; i < words; ++i) {
            const std::uint32_t scale = 1u << random() % 8;
            text += "w" + std::to_string(random() % scale) + " ";
        }
        return text;
    }

    void Step() {
        switch (random() % 16) {
            case 0:
                return Delete();
            case 1:
                return Rename();
            case 2:
                return subject.index->Flush();
            case 3:
                subject.CountOf("w" + std::to_string(random() % 20));
                return;
            case 4:
                return random() % 4 == 0 ? subject.index->Compact() : subject.index->Purge();
            case 5:
                return random() % 4 == 0 ? Reopen() : DeleteAndExpunge();
            case 6:
                if (random() % 4 == 0) Merge();
                return;
            default:
                return Add();
        }
    }

    /// Which names are there, flushed or not.
    const std::set<std::string>& Indexed() const { return indexed; }
    const std::string& TextOf(const std::string& name) const { return texts.at(textNames.at(name)); }

    /// Flushes, and compares everything that can be asked with the model.
    void Check() {
        subject.index->Flush();
        const IndexReport report = VerifyIndex(*subject.index);
        ASSERT_EQ(report.violations, std::vector<std::string>());
        ASSERT_EQ(subject.index->GetDocCount(), indexed.size());
        std::map<std::string, typename InMemory<Index>::List> lists;
        for (const std::string& name : indexed) {
            std::uint32_t length = 0;
            for (const auto& [word, count] : WordsOf(TextOf(name))) {
                auto& list = lists[word];
                ++list.documentCount;
                list.maxDocFreq = std::max(list.maxDocFreq, count);
                list.postings[name] = count;
                length += count;
            }
            const StringDoc doc(name);
            ASSERT_EQ(subject.index->GetDocInfo(&doc, false)->GetDocumentLength(), length);
            if constexpr (kHasVectors) {
                ASSERT_EQ(subject.VectorOf(name), WordsOf(TextOf(name))) << name;
            }
        }
        for (int i = 0; i < 130; ++i) {
            const std::string word = "w" + std::to_string(i);
            ASSERT_EQ(subject.CountOf(word), lists[word].documentCount) << word;
            if constexpr (kHasLists) {
                ASSERT_EQ(subject.ListOf(word), lists[word]) << word;
            }
        }
    }

    std::string NewName() {
        const auto all = std::next(texts.begin(), static_cast<int>(random() % texts.size()));
        return all->first;
    }
    void Add() {
        const std::string name = NewName();
        if (!indexed.insert(name).second) return;
        textNames[name] = name;
        subject.Add(name);
    }
    void Delete() {
        subject.index->Flush();
        if (indexed.empty()) return;
        const std::string name = *std::next(indexed.begin(), static_cast<int>(random() % indexed.size()));
        subject.Delete(name);
        indexed.erase(name);
    }
    void DeleteAndExpunge() {
        Delete();
        if constexpr (kHasLists && kHasVectors)
            if (random() % 2 == 0) subject.index->ExpungeTermPostings();
    }
    void Rename() {
        subject.index->Flush();
        const std::string to = NewName();
        if (indexed.empty() || indexed.contains(to)) return;
        const std::string from = *std::next(indexed.begin(), static_cast<int>(random() % indexed.size()));
        const StringDoc oldDoc(from), newDoc(to);
        subject.index->RenameDoc(&oldDoc, &newDoc);
        indexed.erase(from);
        indexed.insert(to);
        textNames[to] = textNames[from];
    }
    void Reopen() {
        subject.FlushAndCommit();
        if (random() % 2 == 0) subject.storage->Compact();
        subject.Open();
        subject.index->SetBytesForUpdate(budget);
    }
    /// Some new documents come by way of other indexes, in which others were deleted.
    void Merge() {
        InMemory<Index> sources[2] = {InMemory<Index>(texts), InMemory<Index>(texts)};
        std::vector<IAIndex*> indices;
        for (auto& source : sources) {
            source.Make();
            for (auto i = random() % 20; i > 0; --i) {
                const std::string name = NewName();
                if (!indexed.insert(name).second) continue;
                textNames[name] = name;
                source.Add(name);
                if (random() % 3 != 0) continue;
                source.index->Flush();
                source.Delete(name);
                indexed.erase(name);
            }
            source.index->Flush();
            indices.push_back(source.index.get());
        }
        subject.index->Merge(indices);
    }

    Texts texts;
    InMemory<Index> subject{texts};

private:
    const std::uint32_t budget;
    std::mt19937 random;
    std::set<std::string> indexed;
    std::map<std::string, std::string> textNames;  // after renames
};
using IndexHistory = History<InvertedIndex>;

}  // namespace brindle::testing
