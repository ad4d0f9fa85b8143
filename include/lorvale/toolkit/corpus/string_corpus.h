#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/corpus/corpus.h"

namespace brindle {

/// A document that is its own text.
///
/// Stored form: the length as a VInt32, then the bytes.  Ordered by bytes (unsigned), a prefix first.
class LORVALE_EXPORT StringDoc : public IADoc {
public:
    explicit StringDoc(std::string bytes = {}) : text(std::move(bytes)) {}
    ~StringDoc() override;

    /// Terminated.
    const char* GetText() const { return text.c_str(); }
    std::uint32_t GetLength() const { return static_cast<std::uint32_t>(text.size()); }
    std::string_view View() const { return text; }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    /// Raises StorageInvalid for a length that the block cannot hold.
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    bool LessThan(const IAOrderedStorable* other) const override;
    bool Equal(const IAOrderedStorable* other) const override;
    int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const override;
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override;

private:
    std::string text;
};

/// A text in memory.  It keeps its own copy of the bytes.
class LORVALE_EXPORT StringDocText : public IADocText {
public:
    explicit StringDocText(std::string bytes = {}) : text(std::move(bytes)) {}
    ~StringDocText() override;

    std::uint32_t GetNextBuffer(std::uint8_t* buffer, std::uint32_t size) override;
    std::unique_ptr<IADocText> DeepCopy() const override;

private:
    const std::string text;
    std::size_t position = 0;
};

/// The corpus of texts held in memory.  Its documents are given to the index one by one.
class LORVALE_EXPORT StringCorpus : public IACorpus {
public:
    StringCorpus() : IACorpus(IATag("Str0")) {}
    ~StringCorpus() override;

    std::unique_ptr<IADoc> GetProtoDoc() const override;
    std::unique_ptr<IADocText> GetDocText(const IADoc* doc) const override;
};

}  // namespace brindle
