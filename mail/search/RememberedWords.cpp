#include "mail/search/RememberedWords.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace lorvale {

WordMemory::Word WordMemory::wordOf(std::string_view text) {
    Word word{};
    std::ranges::copy(text, word.begin());
    word.back() = static_cast<char>(text.size());
    return word;
}

WordMemory::Place& WordMemory::placeOf(const Word& word) {
    const auto halves = std::bit_cast<std::array<std::uint64_t, 2>>(word);
    const std::uint64_t mixed = (halves[0] ^ std::rotl(halves[1], 29)) * 0x9E37'79B9'7F4A'7C15;
    return _places[(mixed ^ mixed << 23) >> (64 - kBits)];
}

std::unique_ptr<WordMemory> WordMemories::take() {
    {
        const MutexLock lock(_mutex);
        if (!_idle.empty()) {
            auto memory = std::move(_idle.back());
            _idle.pop_back();
            return memory;
        }
    }
    return std::make_unique<WordMemory>();
}

void WordMemories::giveBack(std::unique_ptr<WordMemory> memory) {
    constexpr std::size_t kMostIdle = 2;  // one for what is indexed, one for long queries
    const MutexLock lock(_mutex);
    if (_idle.size() < kMostIdle) _idle.push_back(std::move(memory));
}

/// Gives the word that it was given, once.
class RememberedWords::OneWord final : public brindle::IATokenStream {
public:
    void set(const brindle::IATermView& word) {
        _word = word;
        _isThere = true;
    }
    bool NextTerm(brindle::IATermView& next) override {
        if (!std::exchange(_isThere, false)) return false;
        next = _word;
        return true;
    }
    std::unique_ptr<brindle::IAToken> GetNextToken() override {
        brindle::IATermView next;
        if (!NextTerm(next)) return nullptr;
        return std::make_unique<brindle::IAToken>(std::make_unique<brindle::StringTerm>(next.View()),
                                                  next.startPosition, next.endPosition);
    }
    void GetTextSpan(std::uint8_t*, std::uint32_t, std::uint32_t) override {}  // nobody asks the chain for it

private:
    brindle::IATermView _word;
    bool _isThere = false;
};

RememberedWords::RememberedWords(std::unique_ptr<brindle::IATokenStream> words, const Filters& filters,
                                 WordMemories& memories)
    : IATokenFilter(std::move(words)), _memories(memories) {
    auto word = std::make_unique<OneWord>();
    _word = word.get();
    _filters = filters(std::move(word));
}

RememberedWords::~RememberedWords() {
    if (_memory != nullptr) _memories.giveBack(std::move(_memory));
}

std::unique_ptr<brindle::IAToken> RememberedWords::GetNextToken() {
    brindle::IATermView next;
    if (!NextTerm(next)) return nullptr;
    return std::make_unique<brindle::IAToken>(std::make_unique<brindle::StringTerm>(next.View()),
                                              next.startPosition, next.endPosition);
}

bool RememberedWords::NextTerm(brindle::IATermView& next) {
    while (Input().NextTerm(next)) {
        if (next.length > WordMemory::kLongest || !remembers()) {
            if (filter(next)) return true;
            continue;
        }
        const auto word = WordMemory::wordOf(next.View());
        auto& place = _memory->placeOf(word);
        if (place.word != word || word.back() == 0) {
            const bool stays = filter(next);
            if (stays && next.length > WordMemory::kLongest) return true;
            place.word = word;
            place.term = WordMemory::wordOf(stays ? next.View() : std::string_view());
            if (!stays) place.term.back() = WordMemory::kDropped;
        }
        if (place.term.back() == WordMemory::kDropped) continue;
        // A copy, since whoever gets it may write into it.
        _term = place.term;
        next.text = _term.data();
        next.length = static_cast<std::uint32_t>(_term.back());
        return true;
    }
    return false;
}

/// From some words on: a query comes to its end before a memory is worth its making.
bool RememberedWords::remembers() {
    constexpr std::uint32_t kWordsOfAQuery = 16;
    if (_memory == nullptr && ++_wordsBefore > kWordsOfAQuery) _memory = _memories.take();
    return _memory != nullptr;
}

/// False for a word that the chain drops.
bool RememberedWords::filter(brindle::IATermView& word) {
    _word->set(word);
    return _filters->NextTerm(word);
}

}  // namespace lorvale
