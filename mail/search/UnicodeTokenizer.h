#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/toolkit/analysis/token_stream.h"

namespace lorvale {

/// Words of UTF-8 text, folded for searching; UnicodeAnalysis tells which.
///
/// The text is read in runs of bytes that may belong to words.  One of ASCII alone is one word.  Any other is
/// cut in a window of it at a time, which then goes on behind the last word that is known to be complete.  The
/// window is small enough for the look back of the character stream, so GetTextSpan() works for each token at
/// its time.
class UnicodeTokenizer final : public brindle::TokenSource {
public:
    static constexpr std::size_t kMaxLength = 129;  // of a term, as for English words
    static constexpr std::size_t kWindow = 1024;

    explicit UnicodeTokenizer(std::unique_ptr<brindle::IACharStream> characters);
    ~UnicodeTokenizer() override;

    std::unique_ptr<brindle::IAToken> GetNextToken() override;
    bool NextTerm(brindle::IATermView& next) override;

private:
    /// A term that waits to be asked for.
    struct Waiting {
        std::size_t offset, length;  // in _terms
        std::uint32_t start, end;
    };
    /// A character of a script without blanks, which waits for its neighbour.
    struct Character {
        std::string folded;  // empty: there is none
        std::uint32_t start = 0, end = 0;
        bool isPaired = false;
    };

    bool findRun();
    void readRun();
    void passOverAscii();
    bool isAscii() const;
    brindle::IATermView asciiWord();
    void cutRun();
    std::size_t replaceBadBytes();
    std::size_t completeWords(std::size_t readable) const;
    void passOverLongWord(std::size_t readable);
    void keepFrom(std::size_t begin);
    void addWord(std::size_t begin, std::size_t end);
    void addCharacters(std::string_view word, std::uint32_t start);
    void addCharacter(std::string_view folded, std::uint32_t start, std::uint32_t end, bool followsOn);
    void endCharacters();
    void addTerm(std::size_t offset, std::uint32_t start, std::uint32_t end);

    std::array<char, kWindow> _run;    // the window, ASCII in lower case
    std::array<char, kWindow> _marks;  // where words of it begin
    std::size_t _length = 0;
    std::uint32_t _position = 0;  // of the window in the text
    bool _goesOn = false;         // the run does, behind the window
    bool _inLongWord = false;     // the window begins inside a word that is being passed over
    Character _before;
    std::string _terms;
    std::vector<Waiting> _waiting;
    std::size_t _nextWaiting = 0;
};

}  // namespace lorvale
