#pragma once
#include <cstdint>
#include <memory>

#include "lorvale/export.h"
#include "lorvale/toolkit/corpus/doc.h"

namespace brindle {

class IAInputBlock;
class IAOutputBlock;
class IAStorage;

/// A source of documents.
///
/// An index stores IADocs and no texts; it asks the corpus for a text whenever it needs one, from any thread
/// that adds a document.  What a corpus has to remember lies in one block of the index's storage: Initialize()
/// writes it when the index is made, Open() reads it, Update() writes it again after each update.  A subclass
/// overrides the steps below these three.
class LORVALE_EXPORT IACorpus : public IAObject {
public:
    explicit IACorpus(std::uint32_t typeTag) : corpusType(typeTag) {}
    ~IACorpus() override;

    /// A new, empty document, through which stored documents are restored.
    virtual std::unique_ptr<IADoc> GetProtoDoc() const = 0;
    /// The document's text from its start.
    virtual std::unique_ptr<IADocText> GetDocText(const IADoc* doc) const = 0;
    /// All documents in ascending order.  By default there are none: they are given to the index one by one.
    virtual std::unique_ptr<IADocIterator> GetDocIterator() const;

    /// The bytes that Initializing() and Updating() write; 0 by default, as these write nothing.
    virtual std::uint32_t InitialSize() const;
    virtual IACorpus* Initializing(IAOutputBlock* output);
    virtual IACorpus* Opening(IAInputBlock* input);
    virtual std::uint32_t UpdateSize() const;
    virtual IACorpus* Updating(IAOutputBlock* output);

    IACorpus* Initialize(IAStorage* storage, std::uint32_t block);
    IACorpus* Open(IAStorage* storage, std::uint32_t block);
    IACorpus* Update(IAStorage* storage, std::uint32_t block);

    /// An index is opened only with a corpus of the tag it was made with.
    std::uint32_t GetCorpusType() const { return corpusType; }

private:
    const std::uint32_t corpusType;
};

}  // namespace brindle
