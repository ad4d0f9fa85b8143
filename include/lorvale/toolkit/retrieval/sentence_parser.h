#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/analysis/letter_tree.h"
#include "lorvale/toolkit/corpus/extent.h"
#include "lorvale/toolkit/retrieval/progress.h"

namespace brindle {

/// Cuts a text into extents, one after the other.  What an extent is, a subclass knows.
///
/// The buffer is borrowed, and extents refer to it.  Unless `returnsRemoved` is false, line breaks inside of
/// extents are overwritten with blanks, in the buffer itself.  A buffer has less than 4 GB.  One thread.
class LORVALE_EXPORT IAExtentParser : public IAObject {
public:
    static constexpr std::uint32_t DefaultFrequency = 10'000;

    /// Without a buffer there are no extents.
    IAExtentParser() = default;
    explicit IAExtentParser(std::span<char> text, bool removeReturns = true);
    IAExtentParser(const IAExtentParser&) = delete;
    IAExtentParser& operator=(const IAExtentParser&) = delete;
    ~IAExtentParser() override;

    /// The next extent, or null at the end.  `fn` is then told how much of the text is done, in percent; what
    /// it answers is IsCancelled() until the next call.  The frequency is for subclasses that take long.
    virtual std::unique_ptr<IAExtentDoc> GetNextExtent(const Progress::Function& fn = nullptr,
                                                       std::uint32_t frequency = DefaultFrequency);

    /// Begins at the start of another buffer, counting from 1 again.  A parser that has come to its end stays
    /// there, and one that was made without a buffer is at its end: use a new one for a new text.
    void SetBuffer(std::span<char> text);
    std::span<char> GetBuffer() const { return buffer; }
    std::string_view View() const { return {buffer.data(), buffer.size()}; }
    std::uint32_t GetBytesLeft() const { return bytesLeft; }
    bool IsCancelled() const { return isCancelled; }
    bool IsFinished() const { return isFinished; }
    bool AreReturnsRemoved() const { return returnsRemoved; }

protected:
    /// Finds the next extent, or null.  `finished` is set when there is none behind it.
    virtual std::unique_ptr<IAExtentDoc> GettingNextExtent(const Progress::Function& fn,
                                                           std::uint32_t frequency, bool* finished) = 0;
    /// The extent of `length` bytes from `from` on, with the next number; the text goes on behind it.
    std::unique_ptr<IAExtentDoc> MakeExtent(std::uint32_t from, std::uint32_t length, bool newGroup);
    std::uint32_t StartOfNext() const { return startOfNext; }
    /// There is nothing behind it but what no extent holds.
    void SkipTo(std::uint32_t place);

private:
    std::span<char> buffer;  // borrowed
    std::uint32_t startOfNext = 0;
    std::uint32_t bytesLeft = 0;
    std::uint32_t orderNumber = 0;
    std::uint32_t groupNumber = 0;
    bool isCancelled = false;
    bool returnsRemoved = true;
    bool isFinished = true;
};

/// Knows where the sentences of English text in one-byte characters end.
///
/// A sentence ends at "!", "?" and the full stop that is none of an abbreviation or an initial, at an empty
/// line, and before a line that begins with a bullet or two hyphens.  docs/search.md has the rules.  Line ends
/// are single line feeds: of CR LF each counts as one, so that every line is a sentence.
class LORVALE_EXPORT IAANSISentenceParser : public IAExtentParser {
public:
    /// A list of abbreviations, each with its full stop, in the format of a list of stopwords: the resource
    /// "EnglishAbbreviations" for one.  Of a word in a text at most four letters stand before the full stop
    /// (five at the start of a sentence), or it counts for no abbreviation.  Raises "file not opened
    /// successfully"; a null or empty path stands for no list.
    explicit IAANSISentenceParser(std::span<char> text, const char* abbreviationPath = nullptr,
                                  bool removeReturns = true);
    ~IAANSISentenceParser() override;

    /// Whether a sentence must begin with an upper-case letter; true at the start.
    void SetRequiredUpper(bool required) { requiredUpper = required; }
    bool IsUpperRequired() const { return requiredUpper; }
    /// Adds words to the list, each with its full stop.
    LetterTree& Abbreviations() { return abbreviations; }

protected:
    std::unique_ptr<IAExtentDoc> GettingNextExtent(const Progress::Function& fn, std::uint32_t frequency,
                                                   bool* finished) override;

private:
    class Walk;
    bool LookUpAbbrev(std::string_view word) const;

    LetterTree abbreviations;
    bool requiredUpper = true;
};

}  // namespace brindle
