#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/analysis/term.h"
#include "lorvale/toolkit/corpus/doc.h"
#include "lorvale/toolkit/storage/storable.h"

namespace brindle {

/// One document of a term's list, and how often the term stands in it.
struct FreqPosting {
    std::uint32_t docID = 0;
    std::uint32_t freq = 0;
    bool operator==(const FreqPosting&) const = default;
};

/// One term of a document, and how often it stands there.
struct TFComponent {
    std::uint32_t termID = 0;
    std::uint32_t freq = 0;
    bool operator==(const TFComponent&) const = default;
};

/// The terms of one document.  An index that keeps no vectors is given their sum alone and no components.
class LORVALE_EXPORT TFVector : public IAObject {
public:
    TFVector() = default;
    explicit TFVector(std::vector<TFComponent> ascending);
    /// Without components: only what they would sum up to.
    explicit TFVector(std::uint32_t totalFrequency) : total(totalFrequency) {}
    ~TFVector() override;

    /// The number of components.
    std::uint32_t GetDocumentLength() const { return static_cast<std::uint32_t>(components.size()); }
    const std::vector<TFComponent>& GetComponents() const { return components; }
    std::vector<TFComponent>& GetComponents() { return components; }
    /// The sum of the frequencies.
    std::uint32_t TotalFrequency() const { return total; }

    // Each component is stored as the difference of its ID to the one before, or to 0 for the first, in
    // VInt32s:
    //   freq 1          2 * difference + 1
    //   another freq    2 * difference, freq
    // Term 3 once and term 7 twice:  07 08 02

    std::uint32_t ComponentsSize() const;
    void ComponentsWrite(IAOutputBlock* output) const;
    /// In place of those that there are.  Raises "term vector damaged" (IndexInvalid).
    void ComponentsRead(std::uint32_t count, IAInputBlock* input);
    /// Whether the IDs rise strictly.  With `raise` what is wrong raises.
    bool Validate(bool raise) const;

private:
    std::vector<TFComponent> components;  // by ascending term ID
    std::uint32_t total = 0;
};

// The records of the tables.  Numbers are stored as VInt32; the stored form of each is its fields in the order
// in which they stand here.  Tests and docs/formats.md show examples.

/// A term: ordered by it, as IATerm orders terms, whatever subclass of it they are.
class LORVALE_EXPORT TermInfo : public IAOrderedStorable {
public:
    TermInfo() = default;
    TermInfo(std::unique_ptr<IATerm> ownTerm, std::uint32_t id) : term(std::move(ownTerm)), termID(id) {}
    ~TermInfo() override;

    const IATerm* GetTerm() const { return term.get(); }
    std::unique_ptr<IATerm> TakeTerm() { return std::move(term); }
    std::uint32_t GetTermID() const { return termID; }
    /// How many documents hold the term.
    std::uint32_t GetDocumentCount() const { return documentCount; }
    void SetDocumentCount(std::uint32_t count) { documentCount = count; }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    void DeepCopying(const IAStorable* source) override;
    void Restoring(IAInputBlock* input, const IAStorable* prototype) override;
    bool LessThan(const IAOrderedStorable* other) const override;
    bool Equal(const IAOrderedStorable* other) const override;

    int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const override;
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override;

protected:
    std::unique_ptr<IATerm> term;
    std::uint32_t termID = 0;
    std::uint32_t documentCount = 0;
};

/// A document: ordered as its documents are.
class LORVALE_EXPORT DocInfo : public IAOrderedStorable {
public:
    DocInfo() = default;
    DocInfo(std::unique_ptr<IADoc> ownDocument, std::uint32_t id)
        : document(std::move(ownDocument)), docID(id) {}
    ~DocInfo() override;

    const IADoc* GetDocument() const { return document.get(); }
    std::unique_ptr<IADoc> TakeDocument() { return std::move(document); }
    void SetDocument(std::unique_ptr<IADoc> newDocument) { document = std::move(newDocument); }
    std::uint32_t GetDocID() const { return docID; }
    /// The sum of the frequencies of its terms.
    std::uint32_t GetDocumentLength() const { return documentLength; }
    void SetDocumentLength(std::uint32_t length) { documentLength = length; }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    void DeepCopying(const IAStorable* source) override;
    void Restoring(IAInputBlock* input, const IAStorable* prototype) override;
    bool LessThan(const IAOrderedStorable* other) const override;
    bool Equal(const IAOrderedStorable* other) const override;

    int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const override;
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override;

protected:
    std::unique_ptr<IADoc> document;
    std::uint32_t docID = 0;
    std::uint32_t documentLength = 0;
};

/// From an ID to what it stands for.  The highest ID comes first, so that the first member tells it.
template <class Named>
class IDRecord : public IAOrderedStorable {
public:
    IDRecord() = default;
    /// What stands for nothing but its ID serves as a key.
    explicit IDRecord(std::uint32_t recordID, std::unique_ptr<Named> named = nullptr)
        : id(recordID), value(std::move(named)) {}

    std::uint32_t GetID() const { return id; }
    const Named* GetValue() const { return value.get(); }
    std::unique_ptr<Named> TakeValue() { return std::move(value); }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    bool LessThan(const IAOrderedStorable* other) const override {
        return static_cast<const IDRecord*>(other)->id < id;
    }
    bool Equal(const IAOrderedStorable* other) const override {
        return static_cast<const IDRecord*>(other)->id == id;
    }

    int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const override;
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override;

private:
    std::uint32_t id = 0;
    std::unique_ptr<Named> value;
};
using IDTerm = IDRecord<IATerm>;
using IDDoc = IDRecord<IADoc>;
extern template class IDRecord<IATerm>;
extern template class IDRecord<IADoc>;

/// What a term's ID in the source of a merge becomes here.  Ordered by the new ID.
class LORVALE_EXPORT TIDRename : public IAOrderedStorable {
public:
    TIDRename() = default;
    TIDRename(std::uint32_t newTermID, std::uint32_t oldTermID) : newID(newTermID), oldID(oldTermID) {}
    ~TIDRename() override;

    std::uint32_t GetNewID() const { return newID; }
    std::uint32_t GetOldID() const { return oldID; }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    bool LessThan(const IAOrderedStorable* other) const override;
    bool Equal(const IAOrderedStorable* other) const override;

private:
    std::uint32_t newID = 0;
    std::uint32_t oldID = 0;
};

}  // namespace brindle
