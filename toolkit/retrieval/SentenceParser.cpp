#include "lorvale/toolkit/retrieval/sentence_parser.h"

#include <algorithm>
#include <array>
#include <string>

#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

namespace {

// The classes of the C locale, whatever the process's is.  Quotes and bullets are those of the text encodings
// of one byte that have them.
constexpr bool isWhite(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr bool isLineBreak(char c) {
    return c == '\n' || c == '\f' || c == '\r';
}
constexpr bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
constexpr bool isPunctuation(char c) {
    return (c > ' ' && c < '0') || (c > '9' && c < 'A') || (c > 'Z' && c < 'a') || (c > 'z' && c < 0x7F);
}
constexpr bool isQuote(char c) {
    return std::string_view("'\"\xC8\xD3\xD5\xE3").find(c) != std::string_view::npos;
}
constexpr bool isBullet(char c) {
    return c == '\xA4' || c == '\xA5' || c == '\xA6';
}

/// Of the bytes from a word's blank, or from its first letter at a sentence's start, to its full stop.
constexpr std::uint32_t kShortestAbbreviation = 2, kLongestAbbreviation = 5;

}  // namespace

IAExtentParser::IAExtentParser(std::span<char> text, bool removeReturns)
    : returnsRemoved(removeReturns), isFinished(false) {
    SetBuffer(text);
    bytesLeft = static_cast<std::uint32_t>(text.size());
}

IAExtentParser::~IAExtentParser() = default;

void IAExtentParser::SetBuffer(std::span<char> text) {
    IAAssertion(text.size() < UINT32_MAX, "text too long for a parser", InvalidDocument);
    buffer = text;
    startOfNext = orderNumber = groupNumber = 0;
    isCancelled = false;
}

std::unique_ptr<IAExtentDoc> IAExtentParser::GetNextExtent(const Progress::Function& fn,
                                                           std::uint32_t frequency) {
    if (isFinished) return nullptr;
    std::unique_ptr<IAExtentDoc> extent = GettingNextExtent(fn, frequency, &isFinished);
    const double left = buffer.empty() ? 0 : 100.0 * bytesLeft / static_cast<double>(buffer.size());
    isCancelled = fn != nullptr && fn(static_cast<float>(100 - left));
    return extent;
}

void IAExtentParser::SkipTo(std::uint32_t place) {
    startOfNext = place;
    bytesLeft = static_cast<std::uint32_t>(buffer.size()) - place;
}

std::unique_ptr<IAExtentDoc> IAExtentParser::MakeExtent(std::uint32_t from, std::uint32_t length,
                                                        bool newGroup) {
    SkipTo(from + length);
    if (newGroup) ++groupNumber;
    return std::make_unique<IAExtentDoc>(View(), from, length, ++orderNumber, groupNumber);
}

IAANSISentenceParser::IAANSISentenceParser(std::span<char> text, const char* abbreviationPath,
                                           bool removeReturns)
    : IAExtentParser(text, removeReturns) {
    if (abbreviationPath != nullptr && *abbreviationPath != '\0') abbreviations.LoadFromFile(abbreviationPath);
}

IAANSISentenceParser::~IAANSISentenceParser() = default;

/// One walk through the buffer, to the end of the next sentence.  Each step looks a few bytes ahead at most, or
/// moves over what it has looked at.
class IAANSISentenceParser::Walk {
public:
    Walk(const IAANSISentenceParser& ofParser, std::span<char> text, std::uint32_t from)
        : parser(ofParser), buffer(text), end(static_cast<std::uint32_t>(text.size())), at(from) {}

    /// To the first byte of the next sentence.  True if a paragraph begins there.
    bool SkipBlanks() {
        bool afterBreak = false, newGroup = false;
        for (; at < end && isWhite(buffer[at]); ++at) {
            const char c = buffer[at];
            if (isLineBreak(c)) Blank();
            if (c == '\t' || isLineBreak(c)) {
                newGroup = newGroup || afterBreak;
                afterBreak = afterBreak || isLineBreak(c);
            } else if (c == ' ') {
                if (afterBreak && at + 1 < end && isWhite(buffer[at + 1]))
                    newGroup = true;
                else
                    afterBreak = false;
            }
        }
        start = lastBlank = at;
        return newGroup;
    }

    /// Behind the sentence's last byte.  False if the text ended before the sentence did.
    bool GoToEnd() {
        while (at < end)
            if (Step()) return true;
        return false;
    }

    std::uint32_t At() const { return at; }
    bool IsAtEnd() const { return at == end; }

private:
    bool IsAt(std::uint32_t place, bool (*is)(char)) const { return place < end && is(buffer[place]); }

    /// A line break, here, becomes a blank where that is wanted.
    void Blank() {
        if (parser.AreReturnsRemoved()) buffer[at] = ' ';
    }

    /// One byte, or what belongs to it.  True if the sentence ends behind that.
    bool Step() {
        const char c = buffer[at++];
        if (isQuote(c)) return at >= 2 && buffer[at - 2] == '.';
        if (isLineBreak(c)) return LineBreak();
        if (c == '.') return FullStop();
        if (c == ' ') lastBlank = at - 1;
        if (c != '!' && c != '?') return false;
        if (IsAt(at, isQuote)) ++at;
        return true;
    }

    /// A list item, or what follows a heading, begins a sentence, whatever went before.
    bool LineBreak() {
        --at;
        Blank();
        lastBlank = at++;
        while (at < end && (buffer[at] == ' ' || buffer[at] == '\t')) lastBlank = at++;
        return IsAt(at, isLineBreak) || IsAt(at, isBullet) ||
               (end - at >= 2 && buffer[at] == '-' && buffer[at + 1] == '-');
    }

    bool FullStop() {
        const std::uint32_t stop = at - 1;
        if (TwoWhitesFollow()) return true;
        if (at < end && buffer[at] == '.') {
            while (at < end && buffer[at] == '.') ++at;
            return true;
        }
        if (!IsAt(at, isWhite)) return false;
        const std::uint32_t wordBegin = lastBlank;
        for (; IsAt(at, isWhite); ++at) {
            if (isLineBreak(buffer[at])) Blank();
            lastBlank = at;
        }
        if (IsAt(at, isQuote) || IsAt(at, isBullet) || (at < end && buffer[at] == '-')) return true;
        if (parser.requiredUpper && !IsAt(at, isUpper)) return false;
        return !IsAbbreviation(wordBegin, stop);
    }

    /// Two line breaks, or two other white bytes; of three there are two of one kind.
    bool TwoWhitesFollow() const {
        std::uint32_t breaks = 0, others = 0;
        for (std::uint32_t next = at; next < end && isWhite(buffer[next]) && breaks < 2 && others < 2; ++next)
            ++(isLineBreak(buffer[next]) ? breaks : others);
        return breaks >= 2 || others >= 2;
    }

    bool IsAbbreviation(std::uint32_t wordBegin, std::uint32_t stop) const {
        // An initial, as in "J. Smith".
        const std::uint32_t letter = stop - 1;
        if (stop > start && isUpper(buffer[letter]) && (letter == start || isWhite(buffer[letter - 1])))
            return true;
        const std::uint32_t length = stop - wordBegin;
        return length >= kShortestAbbreviation && length <= kLongestAbbreviation &&
               parser.LookUpAbbrev({buffer.data() + wordBegin, length + 1});
    }

    const IAANSISentenceParser& parser;
    const std::span<char> buffer;
    const std::uint32_t end;
    std::uint32_t at;
    std::uint32_t start = 0;      // of the sentence
    std::uint32_t lastBlank = 0;  // the last one passed, or the start
};

/// `word` ends with its full stop, and may begin with a blank and with punctuation.
bool IAANSISentenceParser::LookUpAbbrev(std::string_view word) const {
    const auto isPassedOver = [](char c) { return isWhite(c) || isPunctuation(c); };
    std::string sought(std::ranges::find_if_not(word, isPassedOver), word.end());
    std::ranges::transform(sought, sought.begin(),
                           [](char c) { return isUpper(c) ? static_cast<char>(c | 0x20) : c; });
    return abbreviations.Contains(sought);
}

std::unique_ptr<IAExtentDoc> IAANSISentenceParser::GettingNextExtent(const Progress::Function&, std::uint32_t,
                                                                     bool* finished) {
    Walk walk(*this, GetBuffer(), StartOfNext());
    const bool newGroup = walk.SkipBlanks();
    const std::uint32_t start = walk.At();
    *finished = walk.IsAtEnd();
    if (*finished) {
        SkipTo(start);
        return nullptr;
    }
    *finished = !walk.GoToEnd();
    return MakeExtent(start, walk.At() - start, newGroup);
}

}  // namespace brindle
