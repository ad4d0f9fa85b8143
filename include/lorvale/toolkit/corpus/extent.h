#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/corpus/corpus.h"

namespace brindle {

class RankedHit;

/// A piece of a text in memory as a document, ordered by its number.
///
/// Stored form: a word of 32 bits that stands for the buffer, then as VInt32s offset, length, number, group,
/// rank.  The word means something only to extents of the same buffer in the same process: it is made of the
/// buffer's address and of a random number that each process draws.  So an index of extents is a temporary one.
class LORVALE_EXPORT IAExtentDoc : public IADoc {
public:
    /// A prototype for stored extents of the buffer, which is borrowed for the life of all of them.
    explicit IAExtentDoc(std::string_view ofBuffer = {}) : buffer(ofBuffer) {}
    /// Numbers begin at 1.  The extent lies within the buffer.
    IAExtentDoc(std::string_view ofBuffer, std::uint32_t from, std::uint32_t size, std::uint32_t number,
                std::uint32_t group);
    ~IAExtentDoc() override;

    /// The whole buffer.
    std::string_view GetText() const { return buffer; }
    std::uint32_t GetOffset() const { return offset; }
    std::uint32_t GetLength() const { return length; }
    std::uint32_t GetExtentNumber() const { return extentNumber; }
    /// The paragraph, from 0.
    std::uint32_t GetGroupNumber() const { return groupNumber; }
    /// A copy of the extent's bytes.
    std::string GetExtent() const { return std::string(View()); }
    std::string_view View() const { return buffer.substr(offset, length); }

    /// How telling the extent is, 0 for the most.
    std::uint32_t GetRank() const { return rank; }
    void SetRank(std::uint32_t newRank) { rank = newRank; }
    /// Borrowed; null for none.
    const RankedHit* GetRankedHit() const { return rankedHit; }
    void SetRankedHit(const RankedHit* hit) { rankedHit = hit; }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    /// Raises "extent of another buffer" (InvalidDocument) for one that is not of this one's buffer, or was
    /// stored by another process.
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    bool LessThan(const IAOrderedStorable* other) const override;
    bool Equal(const IAOrderedStorable* other) const override;
    int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const override;
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override;

private:
    std::string_view buffer;  // borrowed
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
    std::uint32_t extentNumber = 0;
    std::uint32_t groupNumber = 0;
    std::uint32_t rank = 0;
    const RankedHit* rankedHit = nullptr;  // borrowed
};

/// The corpus of the extents of one buffer, which it borrows for life.  They are given to the index one by one.
class LORVALE_EXPORT IAExtentCorpus : public IACorpus {
public:
    static constexpr std::uint32_t Type = IATag("Ext0");

    explicit IAExtentCorpus(std::string_view ofBuffer, std::uint32_t typeTag = Type)
        : IACorpus(typeTag), buffer(ofBuffer) {}
    ~IAExtentCorpus() override;

    std::unique_ptr<IADoc> GetProtoDoc() const override;
    std::unique_ptr<IADocText> GetDocText(const IADoc* doc) const override;
    std::string_view GetBuffer() const { return buffer; }

private:
    const std::string_view buffer;
};

/// A sentence that carries its text with it, ordered by its number.
///
/// Stored form, all as VInt32s but the text: the length, the text's bytes, number, paragraph, position.
class LORVALE_EXPORT SentenceDoc : public IADoc {
public:
    SentenceDoc() = default;
    /// `place` is the offset of the sentence in what it was taken from.
    SentenceDoc(std::string bytes, std::uint32_t number, std::uint32_t paragraph, std::uint32_t place)
        : text(std::move(bytes)), sentenceNumber(number), paragraphNumber(paragraph), position(place) {}
    ~SentenceDoc() override;

    /// Terminated.
    const char* GetText() const { return text.c_str(); }
    std::uint32_t GetLength() const { return static_cast<std::uint32_t>(text.size()); }
    std::string_view View() const { return text; }
    std::uint32_t GetSentenceNumber() const { return sentenceNumber; }
    std::uint32_t GetParagraphNumber() const { return paragraphNumber; }
    std::uint32_t GetPosition() const { return position; }
    /// Borrowed; null for none.
    const RankedHit* GetRankedHit() const { return rankedHit; }
    void SetRankedHit(const RankedHit* hit) { rankedHit = hit; }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    /// Raises StorageInvalid for a length that the block cannot hold.
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    bool LessThan(const IAOrderedStorable* other) const override;
    bool Equal(const IAOrderedStorable* other) const override;

private:
    std::string text;
    std::uint32_t sentenceNumber = 0;
    std::uint32_t paragraphNumber = 0;
    std::uint32_t position = 0;
    const RankedHit* rankedHit = nullptr;  // borrowed
};

class LORVALE_EXPORT SentenceCorpus : public IACorpus {
public:
    SentenceCorpus() : IACorpus(IATag("Sen0")) {}
    ~SentenceCorpus() override;

    std::unique_ptr<IADoc> GetProtoDoc() const override;
    std::unique_ptr<IADocText> GetDocText(const IADoc* doc) const override;
};

}  // namespace brindle
