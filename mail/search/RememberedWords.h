#pragma once
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "lorvale/platform/mutex.h"
#include "lorvale/toolkit/analysis/token_stream.h"

namespace lorvale {

/// What became of words: most of any text is made of few of them, and looking a word up in two lists and
/// cutting its ending is half the cost of an analysis.  Each word has one place, which it shares with many
/// others; the last one has it.  One thread at a time.
class WordMemory {
public:
    static constexpr std::size_t kLongest = 15;  // of the words that are remembered, and of their terms

    /// A short text, its length in the last byte.
    using Word = std::array<char, kLongest + 1>;
    struct Place {
        Word word{}, term{};
    };
    static constexpr char kDropped = kLongest + 1;  // in place of a term's length

    static Word wordOf(std::string_view text);
    Place& placeOf(const Word& word);

private:
    static constexpr unsigned kBits = 12;
    std::vector<Place> _places{std::size_t{1} << kBits};
};

/// The memories of one analysis: each of its streams takes one, and most find one that knows much.  Any thread.
class WordMemories {
public:
    std::unique_ptr<WordMemory> take();
    void giveBack(std::unique_ptr<WordMemory> memory);

private:
    Mutex _mutex;
    std::vector<std::unique_ptr<WordMemory>> _idle LORVALE_GUARDED_BY(_mutex);
};

/// Gives what a chain of filters makes of each word, and asks the chain only for those that it has not seen a
/// moment ago.  The chain looks at a word alone, and at nothing before it.
class RememberedWords final : public brindle::IATokenFilter {
public:
    using Filters =
        std::function<std::unique_ptr<brindle::IATokenStream>(std::unique_ptr<brindle::IATokenStream> words)>;
    /// The memories are borrowed for life.
    RememberedWords(std::unique_ptr<brindle::IATokenStream> words, const Filters& filters,
                    WordMemories& memories);
    ~RememberedWords() override;

    std::unique_ptr<brindle::IAToken> GetNextToken() override;
    bool NextTerm(brindle::IATermView& next) override;

private:
    class OneWord;
    bool remembers();
    bool filter(brindle::IATermView& word);

    OneWord* _word;                                    // at the head of the chain
    std::unique_ptr<brindle::IATokenStream> _filters;  // the chain
    WordMemories& _memories;
    std::unique_ptr<WordMemory> _memory;  // null at first
    std::uint32_t _wordsBefore = 0;       // it
    WordMemory::Word _term{};             // the one that was given last
};

}  // namespace lorvale
