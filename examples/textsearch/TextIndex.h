#pragma once
#include <lorvale/toolkit.h>

#include <memory>
#include <string>

#include "Collection.h"

/// The documents while they are added: a name leads to the text that is being read.
class AddedTexts : public brindle::IACorpus {
public:
    AddedTexts() : IACorpus(brindle::IATag("Txt1")) {}
    std::unique_ptr<brindle::IADoc> GetProtoDoc() const override {
        return std::make_unique<brindle::StringDoc>();
    }
    std::unique_ptr<brindle::IADocText> GetDocText(const brindle::IADoc*) const override {
        return std::make_unique<brindle::StringDocText>(text);
    }
    std::string text;
};

/// An index file with everything that belongs to it.
class TextIndex {
public:
    /// Word lists are read from the folder `words`, unless it is empty.  An index is searched with the lists
    /// with which it was made.
    TextIndex(const std::string& path, const std::string& words, bool forWriting);

    /// False if a document of that name is there already.
    bool add(Item item);
    /// Takes out what deleting left, makes the file small and all durable.
    void finish();
    brindle::InvertedIndex& index() { return *_index; }
    brindle::IAStorage& storage() { return *_storage; }

private:
    std::unique_ptr<brindle::IAStorage> _storage;
    AddedTexts* _texts = nullptr;  // the index's corpus
    std::unique_ptr<brindle::InvertedIndex> _index;
};

/// English, with the lists of the folder `words`, unless that is empty.
std::unique_ptr<brindle::IAAnalysis> analysisWith(const std::string& words);

/// What to call a document that was found.
std::string nameOf(const brindle::RankedHit& hit);
