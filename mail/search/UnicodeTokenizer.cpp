#include "mail/search/UnicodeTokenizer.h"

#include <algorithm>
#include <span>
#include <utility>

#include "base/text/Ascii.h"
#include "base/text/Words.h"
#include "lorvale/toolkit/analysis/char_stream.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr auto kBeginsRun = byteTable([](unsigned char c) { return isAsciiAlphanumeric(c) || c >= 0x80; });

/// What a byte is inside a run: itself, in lower case if it is ASCII, or 0 if it ends the run.  The marks are
/// those that English words may hold.
constexpr auto kInRun = [] {
    std::array<char, 256> bytes{};
    for (unsigned c = 0; c < bytes.size(); ++c)
        if (kBeginsRun[c]) bytes[c] = asciiLower(static_cast<char>(c));
    for (const char mark : {',', '.', '\'', '`'}) bytes[static_cast<unsigned char>(mark)] = mark;
    return bytes;
}();

constexpr bool isHigh(char c) {
    return (c & 0x80) != 0;
}

constexpr bool isContinuation(char c) {
    return (c & 0xC0) == 0x80;
}

/// How many bytes of a text whose rest is still to come make whole characters.
std::size_t wholeCharacters(std::string_view text) {
    std::size_t end = text.size();
    for (int back = 0; back < 3 && end > 0 && isContinuation(text[end - 1]); ++back) --end;
    if (end == 0 || static_cast<unsigned char>(text[end - 1]) < 0xC0) return text.size();
    auto last = text.substr(end - 1);
    return isBadByte(nextCodePoint(last)) ? end - 1 : text.size();
}

/// Takes a character with the marks that belong to it.
std::string_view takeCharacter(std::string_view& text) {
    auto rest = text;
    nextCodePoint(rest);
    for (auto ahead = rest; !ahead.empty() && joinsCharacterBefore(nextCodePoint(ahead));) rest = ahead;
    const auto taken = text.substr(0, text.size() - rest.size());
    text = rest;
    return taken;
}

/// Where the last character begins.
std::size_t lastCharacter(std::string_view text) {
    while (!text.empty() && joinsCharacterBefore(lastCodePoint(text))) continue;
    return text.size();
}

char32_t firstOf(std::string_view text) {
    return nextCodePoint(text);
}

}  // namespace

UnicodeTokenizer::UnicodeTokenizer(std::unique_ptr<brindle::IACharStream> characters)
    : TokenSource(std::move(characters)) {}
UnicodeTokenizer::~UnicodeTokenizer() = default;

std::unique_ptr<brindle::IAToken> UnicodeTokenizer::GetNextToken() {
    brindle::IATermView next;
    if (!NextTerm(next)) return nullptr;
    return std::make_unique<brindle::IAToken>(std::make_unique<brindle::StringTerm>(next.View()),
                                              next.startPosition, next.endPosition);
}

bool UnicodeTokenizer::NextTerm(brindle::IATermView& next) {
    while (_nextWaiting == _waiting.size()) {
        const bool isNew = !_goesOn;
        if (isNew && !findRun()) return false;
        readRun();
        if (isNew && isAscii()) return next = asciiWord(), true;
        cutRun();
    }
    const Waiting& term = _waiting[_nextWaiting++];
    next = {_terms.data() + term.offset, static_cast<std::uint32_t>(term.length), term.start, term.end};
    return true;
}

/// Goes to the next byte that begins a run; false at the end of the text.
bool UnicodeTokenizer::findRun() {
    auto& characters = *GetCharStream();
    do {
        char* const end = characters.GetEndChar();
        char* const at = std::find_if(characters.GetNextCharInBuffer(), end,
                                      [](char c) { return kBeginsRun[static_cast<unsigned char>(c)]; });
        characters.SetNextCharInBuffer(at);
        if (at == end) continue;
        _length = 0;
        _position = characters.CurrentPos();
        return true;
    } while (characters.ReadPastEndOfBuffer());
    return false;
}

/// Fills the window.
void UnicodeTokenizer::readRun() {
    auto& characters = *GetCharStream();
    char* out = _run.data() + _length;
    char* const full = _run.data() + kWindow;
    _goesOn = true;
    while (_goesOn && out != full) {
        char* at = characters.GetNextCharInBuffer();
        char* const stop = at + std::min(characters.GetEndChar() - at, full - out);
        while (at != stop && kInRun[static_cast<unsigned char>(*at)] != 0)
            *out++ = kInRun[static_cast<unsigned char>(*at++)];
        characters.SetNextCharInBuffer(at);
        if (at != characters.GetEndChar())
            _goesOn = kInRun[static_cast<unsigned char>(*at)] != 0;
        else
            _goesOn = characters.ReadPastEndOfBuffer();
    }
    _length = static_cast<std::size_t>(out - _run.data());
}

bool UnicodeTokenizer::isAscii() const {
    return lorvale::isAscii({_run.data(), _length});
}

/// The run as an English word: without the marks behind it.  A long one ends where other characters begin.
brindle::IATermView UnicodeTokenizer::asciiWord() {
    auto& characters = *GetCharStream();
    auto length = std::min(_length, kMaxLength);
    while (!isAsciiAlphanumeric(_run[length - 1])) --length;
    if (_goesOn) passOverAscii();
    return {_run.data(), static_cast<std::uint32_t>(length), _position, characters.CurrentPos()};
}

void UnicodeTokenizer::passOverAscii() {
    auto& characters = *GetCharStream();
    do {
        char* const end = characters.GetEndChar();
        char* const at = std::find_if(characters.GetNextCharInBuffer(), end, [](char c) {
            return isHigh(c) || kInRun[static_cast<unsigned char>(c)] == 0;
        });
        characters.SetNextCharInBuffer(at);
        if (at != end) break;
    } while (characters.ReadPastEndOfBuffer());
    _goesOn = false;
}

/// Makes terms of the words in the window, and leaves in it what the rest of the run may change.
void UnicodeTokenizer::cutRun() {
    _terms.clear();
    _waiting.clear();
    _nextWaiting = 0;
    const auto readable = replaceBadBytes();
    markWordStarts({_run.data(), readable}, _marks);
    const auto complete = _goesOn ? completeWords(readable) : readable;
    if (complete == 0) return passOverLongWord(readable);
    for (std::size_t begin = 0; begin < complete;) {
        auto end = begin + 1;
        while (end < complete && _marks[end] == 0) ++end;
        if (!_inLongWord) addWord(begin, end);
        _inLongWord = false;
        begin = end;
    }
    keepFrom(complete);
    if (!_goesOn) endCharacters();
}

/// Puts a blank for each byte that is no UTF-8.  A character that the window cuts is left for later.
std::size_t UnicodeTokenizer::replaceBadBytes() {
    const std::string_view window(_run.data(), _length);
    const auto readable = _goesOn ? wholeCharacters(window) : _length;
    for (auto rest = window.substr(0, readable); !rest.empty();) {
        const auto at = readable - rest.size();
        if (isBadByte(nextCodePoint(rest))) _run[at] = ' ';
    }
    return readable;
}

/// The end of the words that nothing behind the window can change.  Whether a mark between letters joins them
/// shows behind it alone; so the last two words wait.
std::size_t UnicodeTokenizer::completeWords(std::size_t readable) const {
    const auto lastStart = [this](std::size_t before) {
        while (before > 0 && _marks[--before] == 0) continue;
        return before;
    };
    const auto last = lastStart(readable);
    const auto oneBefore = lastStart(last);
    return oneBefore > 0 ? oneBefore : last;
}

/// The window is all one word: its beginning is the term, and the end of it the context for what goes on. Where
/// characters make the terms, nothing is lost.
void UnicodeTokenizer::passOverLongWord(std::size_t readable) {
    constexpr std::size_t kContext = 64;
    if (isWrittenWithoutBlanks(firstOf({_run.data(), readable}))) {
        const auto last = lastCharacter({_run.data(), readable});
        if (last > 0) return addWord(0, last), keepFrom(last);
    }
    if (!_inLongWord) addWord(0, readable);
    _inLongWord = true;
    auto context = readable - kContext;
    while (isContinuation(_run[context])) ++context;
    keepFrom(context);
}

void UnicodeTokenizer::keepFrom(std::size_t begin) {
    std::copy(_run.begin() + static_cast<std::ptrdiff_t>(begin),
              _run.begin() + static_cast<std::ptrdiff_t>(_length), _run.begin());
    _length -= begin;
    _position += static_cast<std::uint32_t>(begin);
}

void UnicodeTokenizer::addWord(std::size_t begin, std::size_t end) {
    const std::string_view word(_run.data() + begin, end - begin);
    const auto start = _position + static_cast<std::uint32_t>(begin);
    const auto first = firstOf(word);
    if (isWrittenWithoutBlanks(first)) return addCharacters(word, start);
    endCharacters();
    if (!isLetterOrNumber(first)) return;
    const auto offset = _terms.size();
    appendFoldedForSearch(_terms, word);
    addTerm(offset, start, start + static_cast<std::uint32_t>(word.size()));
}

void UnicodeTokenizer::addCharacters(std::string_view word, std::uint32_t start) {
    std::string folded;
    while (!word.empty()) {
        const auto source = takeCharacter(word);
        const auto end = start + static_cast<std::uint32_t>(source.size());
        folded.clear();
        appendFoldedForSearch(folded, source);
        // Some characters are several words in a square: their parts have the place of the whole.
        bool followsOn = _before.end == start;
        for (std::string_view rest = folded; !rest.empty(); followsOn = true)
            addCharacter(takeCharacter(rest), start, end, followsOn);
        start = end;
    }
}

void UnicodeTokenizer::addCharacter(std::string_view folded, std::uint32_t start, std::uint32_t end,
                                    bool followsOn) {
    const bool pairs = followsOn && !_before.folded.empty();
    if (pairs) {
        const auto offset = _terms.size();
        _terms += _before.folded;
        _terms += folded;
        addTerm(offset, _before.start, end);
    } else {
        endCharacters();
    }
    _before.folded = folded;
    _before.start = start;
    _before.end = end;
    _before.isPaired = pairs;
}

/// A character without a neighbour is a term of its own.
void UnicodeTokenizer::endCharacters() {
    if (_before.folded.empty()) return;
    if (!_before.isPaired) {
        const auto offset = _terms.size();
        _terms += _before.folded;
        addTerm(offset, _before.start, _before.end);
    }
    _before = {};
}

/// What was put behind `offset` is a term, or its beginning is, up to a whole character.
void UnicodeTokenizer::addTerm(std::size_t offset, std::uint32_t start, std::uint32_t end) {
    if (_terms.size() - offset > kMaxLength) {
        auto last = offset + kMaxLength;
        while (isContinuation(_terms[last])) --last;
        _terms.resize(last);
    }
    if (_terms.size() > offset) _waiting.push_back({offset, _terms.size() - offset, start, end});
}

}  // namespace lorvale
