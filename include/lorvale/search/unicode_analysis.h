#pragma once
#include <cstdint>
#include <memory>

#include "lorvale/export.h"
#include "lorvale/toolkit/analysis/analysis.h"

namespace lorvale {

class WordMemories;

/// Words of text in any language, which is UTF-8.  "Uni1"
///
/// A run of ASCII letters and digits gives the very terms of brindle::EnglishAnalysis.  Where other characters
/// stand in a run of word bytes, Unicode's rules say where its words are (UAX #29).  A word loses its case and
/// its accents, so that "Müller", "MÜLLER" and "Muller" are one term; if it is ASCII then, it goes through the
/// English lists and rules like any other.  Scripts that put no blanks between words (Han, Kana, Thai and their
/// kin) give each pair of neighbouring characters, and a character that stands alone.
///
/// A term has at most 129 bytes; more than some 1,000 bytes of one word are passed over.  A byte that is no
/// UTF-8 parts words.  Of a boolean query's word of several terms, as Japanese ones are, a document holds them
/// all.
class LORVALE_EXPORT UnicodeAnalysis : public brindle::IAAnalysis {
public:
    static constexpr std::uint32_t Type = brindle::IATag("Uni1");

    /// Without stopwords and irregular forms.
    UnicodeAnalysis();
    /// With the English lists, as EnglishAnalysis takes them.
    UnicodeAnalysis(std::unique_ptr<brindle::IADocText> stopwordList,
                    std::unique_ptr<brindle::IADocText> substitutionList);
    UnicodeAnalysis(const char* stopwordPath, const char* substitutionPath);
    ~UnicodeAnalysis() override;

    std::unique_ptr<brindle::IATokenStream> MakeTokenStream(
        std::unique_ptr<brindle::IADocText> text) const override;
    std::unique_ptr<brindle::IATerm> GetProtoTerm() const override;
    bool HasUnicodeWords() const override { return true; }

private:
    const brindle::EnglishAnalysis _english;        // whose filters stand behind our words
    const std::unique_ptr<WordMemories> _memories;  // what these made of them
};

}  // namespace lorvale
