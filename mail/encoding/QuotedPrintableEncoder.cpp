#include <algorithm>
#include <bit>
#include <optional>

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

constexpr bool isWhite(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\f' || c == '\r';
}

/// What stands in 64 bytes, a bit a byte.  "F..m " counts as not plain, so that kFrom is never overlooked.
struct Block {
    static constexpr std::size_t kSize = 64;
    static constexpr std::size_t kReads = kSize + kFrom.size() - 1;
    std::uint64_t plain = 0, spaces = 0, lineEnds = 0;
};

/// Copies kSize bytes and looks at kReads.  No branch depends on them: line and word lengths cannot be
/// predicted, and a wrong guess costs more than all of this.
inline Block copyBlock(const char* text, std::uint8_t* out) {
    Block block;
#if defined(__SSE2__)
    const auto space = _mm_set1_epi8(' '), lineEnd = _mm_set1_epi8('\n'), equals = _mm_set1_epi8('=');
    const auto letterF = _mm_set1_epi8(kFrom[0]), letterM = _mm_set1_epi8(kFrom[3]);
    const auto bits = [](__m128i mask) { return static_cast<std::uint64_t>(_mm_movemask_epi8(mask)); };
    const auto load = [](const char* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); };
    for (std::size_t i = 0; i < Block::kSize; i += 16) {
        const auto here = load(text + i);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), here);
        const auto fromSpace = _mm_sub_epi8(here, space);  // wraps round below it: one comparison does
        const auto inRange = _mm_cmpeq_epi8(_mm_min_epu8(fromSpace, _mm_set1_epi8('~' - ' ')), fromSpace);
        const auto from = _mm_and_si128(
            _mm_and_si128(_mm_cmpeq_epi8(here, letterF), _mm_cmpeq_epi8(load(text + i + 3), letterM)),
            _mm_cmpeq_epi8(load(text + i + 4), space));
        const auto excepted = _mm_or_si128(_mm_cmpeq_epi8(here, equals), from);
        block.plain |= bits(_mm_andnot_si128(excepted, inRange)) << i;
        block.spaces |= bits(_mm_cmpeq_epi8(here, space)) << i;
        block.lineEnds |= bits(_mm_cmpeq_epi8(here, lineEnd)) << i;
    }
#else
    for (std::size_t i = 0; i < Block::kSize; ++i) {
        const bool from = text[i] == kFrom[0] && text[i + 3] == kFrom[3] && text[i + 4] == ' ';
        block.plain |= std::uint64_t{isPlain(text[i]) && !from} << i;
        block.spaces |= std::uint64_t{text[i] == ' '} << i;
        block.lineEnds |= std::uint64_t{text[i] == '\n'} << i;
        out[i] = static_cast<std::uint8_t>(text[i]);
    }
#endif
    return block;
}

/// What takes the place of a line: a block, and a second one where the first is plain to its end.
struct Window {
    static constexpr std::size_t kSize = 2 * Block::kSize;
    static constexpr std::size_t kReads = Block::kSize + Block::kReads;
    Block low, high;

    Window(const char* text, std::uint8_t* out) : low(copyBlock(text, out)) {
        if (low.plain == ~std::uint64_t{0}) high = copyBlock(text + Block::kSize, out + Block::kSize);
    }

    std::size_t plainLength() const {
        const auto length = static_cast<std::size_t>(std::countr_one(low.plain));
        return length < 64 ? length : 64 + static_cast<std::size_t>(std::countr_one(high.plain));
    }

    /// The last space among the first `length` bytes, which are plain; nullopt without one.
    std::optional<std::size_t> lastSpace(std::size_t length) const {
        const auto first = [](std::uint64_t set, std::size_t count) {
            return count < 64 ? set & ((std::uint64_t{1} << count) - 1) : set;
        };
        const auto lower = first(low.spaces, length);
        const auto upper = length > 64 ? first(high.spaces, length - 64) : 0;
        if ((lower | upper) == 0) return std::nullopt;
        return (upper != 0 ? 127u : 63u) -
               static_cast<std::size_t>(std::countl_zero(upper != 0 ? upper : lower));
    }
};

/// How many bytes at the start of `text` are whole lines that stay as they are: plain, no longer than kLongest
/// and without a space at the end.  They are copied.  `out` has room for all of `text`.
std::size_t copyPlainLines(std::string_view text, std::uint8_t* out) {
    constexpr std::size_t kLongest = kLastColumn - 1;
    std::size_t at = 0, lines = 0;  // how far it was looked, and how far all is well
    while (text.size() - at >= Block::kReads) {
        const auto block = copyBlock(text.data() + at, out + at);
        const auto spaceAtLineEnd = block.spaces & block.lineEnds >> 1;
        const auto good =
            static_cast<std::size_t>(std::countr_one((block.plain | block.lineEnds) & ~spaceAtLineEnd));
        // The line ends before the first bad byte.  A space whose line end opens the next block is bad there.
        const bool isCut = lines < at && block.lineEnds & 1 && text[at - 1] == ' ';
        const auto usable = isCut       ? 0
                            : good < 64 ? block.lineEnds & ((std::uint64_t{1} << good) - 1)
                                        : block.lineEnds;
        if (usable == 0) {
            if (isCut || good < Block::kSize || at + Block::kSize - lines > kLongest) return lines;
        } else {
            const auto first = at + static_cast<std::size_t>(std::countr_zero(usable));
            if (first - lines > kLongest) return lines;
            lines = at + Block::kSize - static_cast<std::size_t>(std::countl_zero(usable));
            if (good < Block::kSize) return lines;
        }
        at += Block::kSize;
    }
    return lines;
}

/// Takes runs of plain bytes at once and all others one by one.  What a run must know of the rules follows from
/// takeByte(): as long as every byte has one column, the word behind a space fits when the next white space
/// lies less than kLastColumn bytes from where the line began.
class QuotedPrintableEncoder {
public:
    explicit QuotedPrintableEncoder(std::string_view in) : _in(in), _out(in.size()) {}

    Data run() {
        if (!_in.empty()) takeByte();  // the only byte that looks ahead without being white
        while (_at < _in.size()) {
            if (_in[_at] == '\n') {
                takeLineEnd();
            } else if (!takePlainLines() && !takePlainRun()) {
                takeByte();
            }
        }
        if (_column > 0) breakLine();
        return _out.data();
    }

private:
    /// The rules, a byte at a time.
    void takeByte() {
        findLookahead();
        const auto c = _in[_at];
        if (mustEscape()) {
            appendEscape(c);
            _column += 3;
        } else {
            _out.append(c);
            _column = c == '\t' ? _column / 8 * 8 + 8 : c == '\n' ? 0 : _column + 1;
        }
        if (_at == _lookahead) {
            // A word that would not fit on the line moves to the next one.  (The distance counts the byte here
            // too, so a word that would just fit moves as well.)
            _lookahead = nextWhite(_at + 1);
            if (_lookahead - _at + _column > kLastColumn) _column = kBreakNow;
        }
        ++_at;
        if (_column > kLastColumn) breakLine();
    }

    /// What takeByte() does with a line end, but for looking ahead, which can mostly be spared.
    void takeLineEnd() {
        _out.append('\n');
        _column = 0;
        ++_at;
        _pending = Pending::check;
    }

    /// Behind a line end, as many lines as stay as they are.
    bool takePlainLines() {
        constexpr std::size_t kAtOnce = 16 * 1024;
        if (_pending != Pending::check) return false;
        const auto rest = _in.substr(_at, kAtOnce);
        const auto length = copyPlainLines(rest, _out.reserve(rest.size()));
        if (length == 0) return false;
        _out.commit(length);
        _at += length;
        _pending = Pending::check;
        return true;
    }

    /// Plain bytes on the line, up to its break.  False, and nothing is done, when none stands here or the end
    /// of the data is near.
    bool takePlainRun() {
        const auto rest = _in.substr(_at);
        if (rest.size() < Window::kReads) return false;
        const Window window(rest.data(), _out.reserve(Window::kSize));
        auto length = std::min(window.plainLength(), kLastColumn + 1 - _column);
        if (length > 0 && rest[length - 1] == ' ' && rest[length] == '\n') --length;  // to be escaped
        if (length == 0) return false;
        const auto end = _column + length;  // as a column
        const auto space = window.lastSpace(std::min(length, kLastColumn - _column));
        if (!space) return takeWithoutSpace(length, end);
        bool fits = end < kLastColumn;
        _pending = Pending::find;
        if (fits) {
            _pending = Pending::nothing;
            _lookahead = nextWhite(_at + length);
            fits = _lookahead - _at + _column < kLastColumn;
        }
        const auto taken = fits ? length : *space + 1;
        _out.commit(taken);
        _at += taken;
        _column = end;
        if (!fits) breakLine();
        return true;
    }

    /// A run inside one word, which no break is made in before the last column.
    bool takeWithoutSpace(std::size_t length, std::size_t end) {
        const bool wordEnds = isWhite(_in[_at + length]) && end < kLastColumn;
        if (_pending == Pending::check && !wordEnds) {
            findLookahead();  // may write a break, so the run is taken anew
            return true;
        }
        if (_pending == Pending::check) _pending = Pending::find;
        _out.commit(length);
        _at += length;
        _column = end;
        if (_column > kLastColumn) {
            // A space in the column behind the last one is white too.  Else the lookahead stands, and is not
            // looked for again: a very long word must not be searched to its end on each of its lines.
            if (_in[_at - 1] == ' ') _pending = Pending::find;
            breakLine();
        }
        return true;
    }

    /// Makes up for the looking ahead that was put off.
    void findLookahead() {
        if (_pending == Pending::nothing) return;
        _lookahead = nextWhite(_at);
        if (_pending == Pending::check && _lookahead - (_at - 1) > kLastColumn) breakLine();
        _pending = Pending::nothing;
    }

    std::size_t nextWhite(std::size_t from) const {
        while (from < _in.size() && !isWhite(_in[from])) ++from;
        return from;
    }

    bool mustEscape() const {
        const auto c = _in[_at];
        if (c == ' ' || c == '\t') return _at + 1 == _in.size() || _in[_at + 1] == '\n';
        if (!isPlain(c)) return c != '\n';
        return c == kFrom[0] && startsWithFrom(_in.substr(_at));
    }

    void breakLine() {
        auto* const to = _out.reserve(2);
        to[0] = '=';
        to[1] = '\n';
        _out.commit(2);
        _column = 0;
    }

    void appendEscape(char c) {
        constexpr std::string_view kDigits = "0123456789ABCDEF";
        const auto byte = static_cast<std::uint8_t>(c);
        auto* const to = _out.reserve(3);
        to[0] = '=';
        to[1] = static_cast<std::uint8_t>(kDigits[byte >> 4]);
        to[2] = static_cast<std::uint8_t>(kDigits[byte & 15]);
        _out.commit(3);
    }

    /// Whether _lookahead is to be found yet, and whether its word must then be checked against a new line.
    enum class Pending { nothing, find, check };

    const std::string_view _in;
    ByteBuffer _out;
    std::size_t _at = 0;
    std::size_t _column = 0;
    std::size_t _lookahead = 0;  // the first white space from here on; at the start the first byte
    Pending _pending = Pending::nothing;
};

}  // namespace

Data encodeQuotedPrintable(const Data& data) {
    return QuotedPrintableEncoder(data.view()).run();
}

}  // namespace lorvale
