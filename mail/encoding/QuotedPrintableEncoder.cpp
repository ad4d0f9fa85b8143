#include <algorithm>
#include <array>
#include <bit>

#include "base/text/ByteSet.h"
#include "lorvale/mime.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace lorvale {

namespace {

constexpr std::size_t kLastColumn = 73;  // a line breaks behind it; an escape and "=" may still follow
constexpr std::size_t kBreakNow = 99;

/// Written as "=46rom " wherever it stands: some program on the way puts a ">" before it at a line start, and
/// what is a line start changes when lines are broken anew.
constexpr std::string_view kFrom = "From ";

bool startsWithFrom(std::string_view text) {
    return text.size() > kFrom.size() && text.starts_with(kFrom);
}

/// Bytes that are written as they are in any place, space included; it is the caller who knows line ends.
constexpr bool isPlain(char c) {
    return c >= ' ' && c <= '~' && c != '=';
}

/// How many bytes at the start of `text` are plain and begin no kFrom, counted up to `limit`.
std::size_t plainPrefix(std::string_view text, std::size_t limit) {
    std::size_t i = 0;
#if defined(__SSE2__)
    constexpr std::size_t kStride = 16;
    const auto belowSpace = _mm_set1_epi8(' ' - 1), aboveTilde = _mm_set1_epi8('~' + 1);
    const auto equals = _mm_set1_epi8('='), letterF = _mm_set1_epi8('F');
    for (; i < limit && text.size() - i >= kStride; i += kStride) {
        const auto bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
        // Bytes from 0x80 on are negative here, so they fail the comparison with the blank too.
        const auto inRange = _mm_cmpgt_epi8(bytes, belowSpace);
        const auto excepted = _mm_or_si128(_mm_cmpeq_epi8(bytes, aboveTilde), _mm_cmpeq_epi8(bytes, equals));
        const auto plain = static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_andnot_si128(excepted, inRange)));
        const auto stop = static_cast<std::size_t>(std::countr_one(plain));
        auto candidates = static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, letterF)));
        for (; candidates != 0; candidates &= candidates - 1) {
            const auto at = static_cast<std::size_t>(std::countr_zero(candidates));
            if (at >= stop) break;
            if (startsWithFrom(text.substr(i + at))) return std::min(i + at, limit);
        }
        if (stop < kStride) return std::min(i + stop, limit);
    }
#endif
    while (i < std::min(limit, text.size()) && isPlain(text[i]) && !startsWithFrom(text.substr(i))) ++i;
    return std::min(i, limit);
}

class QuotedPrintableEncoder {
public:
    explicit QuotedPrintableEncoder(std::string_view in) : _in(in), _out(in.size()) {}

    Data run() {
        while (_at < _in.size()) {
            if (_column > 0 || !takePlainLine()) takeByte();
        }
        if (_column > 0) breakLine();
        return _out.data();
    }

private:
    /// The rules, a byte at a time.
    void takeByte() {
        const auto c = _in[_at];
        if (mustEscape()) {
            appendEscape(c);
            _column += 3;
        } else {
            _out.append(c);
            _column = c == '\t' ? _column / 8 * 8 + 8 : c == '\n' ? 0 : _column + 1;
        }
        if (_at == _lookahead) lookAhead();
        ++_at;
        if (_column > kLastColumn) breakLine();
    }

    bool mustEscape() const {
        const auto c = _in[_at];
        if (c == ' ' || c == '\t') return _at + 1 == _in.size() || _in[_at + 1] == '\n';
        if (!isPlain(c)) return c != '\n';
        return c == kFrom[0] && startsWithFrom(_in.substr(_at));
    }

    /// Moves the lookahead from the byte here to the next white space.  A word that would not fit on the line
    /// is put on the next one.  (The distance counts the byte here too, so a word that would just fit moves as
    /// well.)
    void lookAhead() {
        const auto& white = ByteSet::asciiWhitespaceSet();
        do ++_lookahead;
        while (_lookahead < _in.size() && !white.byteIsMember(static_cast<std::uint8_t>(_in[_lookahead])));
        if (_lookahead - _at + _column > kLastColumn) _column = kBreakNow;
    }

    /// At the start of a line: what takeByte() would do with all bytes up to the next line end or break, where
    /// all of them are plain.  False, and nothing is done, where that is not so.
    bool takePlainLine() {
        const auto rest = _in.substr(_at);
        const auto length = plainPrefix(rest, kLastColumn + 1);
        if (length == rest.size()) return false;
        if (length < kLastColumn) {
            if (rest[length] != '\n' || (length > 0 && rest[length - 1] == ' ')) return false;
            takeLine(length + 1);
        } else {
            // The line is longer than it may be.  It breaks behind the last space that has a column.
            if (length == kLastColumn) return false;
            const auto space = rest.substr(0, kLastColumn).rfind(' ');
            if (space == std::string_view::npos) return false;
            takeLine(space + 1);
        }
        if (_column > kLastColumn) breakLine();
        return true;
    }

    /// Copies bytes that end in white space, the only one from which lookAhead() has something to say.
    void takeLine(std::size_t length) {
        _out.append(_in.substr(_at, length));
        _at += length - 1;
        _lookahead = _at;
        _column = _in[_at] == '\n' ? 0 : length;
        lookAhead();
        ++_at;
    }

    void breakLine() {
        _out.append("=\n");
        _column = 0;
    }

    void appendEscape(char c) {
        constexpr std::string_view kDigits = "0123456789ABCDEF";
        const auto byte = static_cast<std::uint8_t>(c);
        const char escape[] = {'=', kDigits[byte >> 4], kDigits[byte & 15]};
        _out.append(std::string_view(escape, sizeof escape));
    }

    const std::string_view _in;
    ByteBuffer _out;
    std::size_t _at = 0;
    std::size_t _column = 0;
    std::size_t _lookahead = 0;  // the first white space from here on; at the start the first byte
};

}  // namespace

Data encodeQuotedPrintable(const Data& data) {
    return QuotedPrintableEncoder(data.view()).run();
}

}  // namespace lorvale
