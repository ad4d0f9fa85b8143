#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>

#include "lorvale/export.h"
#include "lorvale/toolkit/analysis/term.h"
#include "lorvale/toolkit/analysis/token_stream.h"
#include "lorvale/toolkit/corpus/doc.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

class IAStorage;
class LetterTree;
class StemmingDictionary;

/// Knows how a text becomes terms.  Documents and queries go through the same analysis: that is why a word of a
/// query meets a word of a document.  An analysis keeps nothing in the index's storage, so the caller hands an
/// equal one to every opening of an index; the tag is kept there for comparison.
///
/// Any number of threads may make streams and read them at one time, each its own.
class LORVALE_EXPORT IAAnalysis : public IAObject {
public:
    explicit IAAnalysis(std::uint32_t typeTag) : analysisType(typeTag) {}
    IAAnalysis(const IAAnalysis&) = delete;
    IAAnalysis& operator=(const IAAnalysis&) = delete;
    ~IAAnalysis() override;

    /// These two do nothing in the analyses of the toolkit.
    virtual IAAnalysis* Initialize(IAStorage* storage, std::uint32_t block);
    virtual IAAnalysis* Open(IAStorage* storage, std::uint32_t block);
    /// The chain from the text's bytes to its terms.  It must not outlive the analysis.
    virtual std::unique_ptr<IATokenStream> MakeTokenStream(std::unique_ptr<IADocText> text) const = 0;
    /// A new, empty term, through which stored terms are restored.
    virtual std::unique_ptr<IATerm> GetProtoTerm() const = 0;
    /// Whether bytes above 0x7F are letters, and a word may be cut into several terms that belong together.
    /// Then boolean queries hold such words, and a document fulfils one if it has all of its terms.
    virtual bool HasUnicodeWords() const { return false; }

    std::uint32_t GetAnalysisType() const { return analysisType; }

private:
    const std::uint32_t analysisType;
};

/// Runs of letters in lower case, without words of one or two letters.  "Sim1"
class LORVALE_EXPORT SimpleAnalysis : public IAAnalysis {
public:
    SimpleAnalysis() : IAAnalysis(IATag("Sim1")) {}
    ~SimpleAnalysis() override;
    std::unique_ptr<IATokenStream> MakeTokenStream(std::unique_ptr<IADocText> text) const override;
    std::unique_ptr<IATerm> GetProtoTerm() const override;
};

/// Runs of letters and digits in lower case, with commas and full stops inside.  "1Bt1"
class LORVALE_EXPORT OneByteAnalysis : public IAAnalysis {
public:
    OneByteAnalysis() : IAAnalysis(IATag("1Bt1")) {}
    ~OneByteAnalysis() override;
    std::unique_ptr<IATokenStream> MakeTokenStream(std::unique_ptr<IADocText> text) const override;
    std::unique_ptr<IATerm> GetProtoTerm() const override;
};

/// English words: in lower case, without stopwords, irregular forms replaced, suffixes cut.  "Eng1"
class LORVALE_EXPORT EnglishAnalysis : public IAAnalysis {
public:
    /// Without stopwords and irregular forms.
    EnglishAnalysis();
    EnglishAnalysis(std::nullptr_t, std::nullptr_t) : EnglishAnalysis() {}
    /// With lists read from texts; null stands for no list.  The lists are read here and now.
    EnglishAnalysis(std::unique_ptr<IADocText> stopwordList, std::unique_ptr<IADocText> substitutionList);
    /// With lists read from files, the resources "EnglishStopwords" and "EnglishSubstitutions" for one; a null
    /// or empty path stands for no list.  Raises "file not opened successfully".
    EnglishAnalysis(const char* stopwordPath, const char* substitutionPath);
    ~EnglishAnalysis() override;

    std::unique_ptr<IATokenStream> MakeTokenStream(std::unique_ptr<IADocText> text) const override;
    std::unique_ptr<IATerm> GetProtoTerm() const override;
    /// What stands behind the tokenizer: stopwords, irregular forms, suffixes.  For words in lower case.
    std::unique_ptr<IATokenStream> FilterWords(std::unique_ptr<IATokenStream> words) const;

private:
    std::unique_ptr<const LetterTree> stopwords;           // may be null
    std::unique_ptr<const StemmingDictionary> dictionary;  // may be null
};

}  // namespace brindle
