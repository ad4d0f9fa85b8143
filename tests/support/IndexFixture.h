#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "lorvale/toolkit/analysis.h"
#include "lorvale/toolkit/corpus.h"
#include "lorvale/toolkit/index.h"
#include "lorvale/toolkit/storage.h"
#include "tests/support/MemoryStoreStream.h"

namespace brindle::testing {

/// The texts of documents by name: what every test thinks about.
using Texts = std::map<std::string, std::string>;

/// The words of a text, each with its number: what OneByteAnalysis makes of words in lower case.
using Words = std::map<std::string, std::uint32_t>;
inline Words WordsOf(std::string_view text) {
    Words words;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        if (end > at) ++words[std::string(text.substr(at, end - at))];
        at = end + 1;
    }
    return words;
}

/// A corpus over such texts, which outlive it and do not change while somebody reads.
class TextsCorpus : public IACorpus {
public:
    explicit TextsCorpus(const Texts& corpusTexts) : IACorpus(IATag("Test")), texts(corpusTexts) {}
    std::unique_ptr<IADoc> GetProtoDoc() const override { return std::make_unique<StringDoc>(); }
    std::unique_ptr<IADocText> GetDocText(const IADoc* doc) const override {
        return std::make_unique<StringDocText>(
            texts.at(std::string(static_cast<const StringDoc*>(doc)->View())));
    }
    std::unique_ptr<IADocIterator> GetDocIterator() const override {
        class Iterator : public IADocIterator {
        public:
            explicit Iterator(const Texts& all) : at(all.begin()), end(all.end()) {}
            std::unique_ptr<IADoc> GetNextDoc() override {
                return at == end ? nullptr : std::make_unique<StringDoc>((at++)->first);
            }

        private:
            Texts::const_iterator at, end;
        };
        return std::make_unique<Iterator>(texts);
    }

private:
    const Texts& texts;
};

/// An index in memory over the texts, which it borrows.
template <class Index>
class InMemory {
public:
    explicit InMemory(const Texts& indexTexts, std::shared_ptr<Bytes> onBytes = nullptr)
        : texts(indexTexts), bytes(onBytes != nullptr ? std::move(onBytes) : std::make_shared<Bytes>()) {}

    void Make() {
        Attach(std::make_unique<MemoryStoreStream>(bytes));
        storage->Initialize();
        index->Initialize();
    }
    /// With all the texts in it.
    void MakeWithAll() {
        Make();
        for (const auto& [name, text] : texts) Add(name);
        index->Flush();
    }
    void Open(bool writable = true) {
        Attach(std::make_unique<MemoryStoreStream>(bytes));
        storage->Open(writable);
        index->Open();
    }
    void Attach(std::unique_ptr<IAStoreStream> stream) {
        index.reset();
        storage = IAMakeStorage(std::move(stream));
        index = std::make_unique<Index>(storage.get(), std::make_unique<TextsCorpus>(texts),
                                        std::make_unique<OneByteAnalysis>());
    }
    void Add(std::string_view name) { index->AddDoc(std::make_unique<StringDoc>(std::string(name))); }
    void Delete(std::string_view name) {
        const StringDoc doc{std::string(name)};
        index->DeleteDoc(&doc);
    }
    void FlushAndCommit() {
        index->Flush();
        storage->Commit();
    }
    /// The term's postings by document, deleted ones left out; and what the record says of them.
    struct List {
        bool operator==(const List&) const = default;
        std::uint32_t documentCount = 0, maxDocFreq = 0;
        Words postings;
    };
    List ListOf(std::string_view word) {
        const IATerm term(word);
        const auto info = index->GetTermInfo(&term);
        if (info == nullptr) return {};
        List list{info->GetDocumentCount(), static_cast<InvertedTermInfo&>(*info).GetMaxDocFreq(), {}};
        const auto stream = index->GetFreqPostings(info.get());
        for (FreqPosting posting; stream->Next(&posting);) {
            const auto doc = index->GetIDDoc(posting.docID);
            list.postings[std::string(static_cast<StringDoc&>(*doc).View())] = posting.freq;
        }
        return list;
    }

    /// How many documents the term's record counts.
    std::uint32_t CountOf(std::string_view word) {
        const IATerm term(word);
        const auto info = index->GetTermInfo(&term);
        return info != nullptr ? info->GetDocumentCount() : 0;
    }
    /// The words of a document as its vector has them.
    Words VectorOf(std::string_view name) {
        Words words;
        const StringDoc doc{std::string(name)};
        const auto vector = index->GetTFVector(&doc);
        for (const auto& [termID, freq] : vector->GetComponents())
            words[std::string(index->GetIDTerm(termID)->View())] = freq;
        return words;
    }

    const Texts& texts;
    std::shared_ptr<Bytes> bytes;
    std::unique_ptr<IAStorage> storage;
    std::unique_ptr<Index> index;  // after the storage, which it uses to the end
};
using IndexInMemory = InMemory<InvertedIndex>;

}  // namespace brindle::testing
