#include <algorithm>
#include <array>
#include <bit>

#include "lorvale/mime.h"
#include "mail/encoding/TransferDecoders.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace lorvale {

namespace {

constexpr std::uint8_t kNoDigit = 255;

constexpr auto hexDigits = [] {
    std::array<std::uint8_t, 128> values{};
    values.fill(kNoDigit);
    for (std::uint8_t i = 0; i < 10; ++i) values[std::size_t{'0'} + i] = i;
    for (std::uint8_t i = 0; i < 6; ++i)
        values[std::size_t{'A'} + i] = values[std::size_t{'a'} + i] = static_cast<std::uint8_t>(10 + i);
    return values;
}();

/// The byte for two digits.  Bad ones are not refused: each counts as 255, so "=G1" is 0xF1 and the reader sees
/// that something stood there.  Transports that set the eighth bit are forgiven.
std::uint8_t byteFromHex(char high, char low) {
    const auto digit = [](char c) { return std::uint32_t{hexDigits[static_cast<std::uint8_t>(c) & 0x7F]}; };
    return static_cast<std::uint8_t>(digit(high) * 16 + digit(low));
}

constexpr std::size_t kCopyStride = 64;

/// Copies up to the first "=" or the first line end behind a space, and answers how many bytes that is.  `out`
/// has room for kCopyStride bytes more than `in` holds.
std::size_t copyPlain(std::string_view in, std::uint8_t* out) {
    std::size_t i = 0;
#if defined(__SSE2__)
    const auto equals = _mm_set1_epi8('='), space = _mm_set1_epi8(' '), newline = _mm_set1_epi8('\n');
    const auto copy16 = [&](std::size_t at) {
        const auto here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in.data() + at));
        const auto next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in.data() + at + 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + at), here);
        const auto spaceAtLineEnd = _mm_and_si128(_mm_cmpeq_epi8(here, space), _mm_cmpeq_epi8(next, newline));
        return _mm_or_si128(_mm_cmpeq_epi8(here, equals), spaceAtLineEnd);
    };
    const auto bits = [](__m128i mask) { return static_cast<std::uint64_t>(_mm_movemask_epi8(mask)); };
    for (; in.size() - i > kCopyStride; i += kCopyStride) {
        const auto a = copy16(i), b = copy16(i + 16), c = copy16(i + 32), d = copy16(i + 48);
        if (bits(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) == 0) continue;
        const auto stops = bits(a) | bits(b) << 16 | bits(c) << 32 | bits(d) << 48;
        i += static_cast<std::size_t>(std::countr_zero(stops));
        return in[i] == ' ' ? i + 1 : i;
    }
#endif
    for (; i < in.size() && in[i] != '='; ++i) {
        if (in[i] == '\n' && i > 0 && in[i - 1] == ' ') break;
        out[i] = static_cast<std::uint8_t>(in[i]);
    }
    return i;
}

/// Where the soft line break that begins with the "=" at in[at] ends; `at` itself when it is none.
std::size_t softBreakEnd(std::string_view in, std::size_t at) {
    const auto end = in.find_first_not_of(' ', at + 1);
    return end != std::string_view::npos && in[end] == '\n' ? end + 1 : at;
}

/// Appends to a buffer, a block of input at a time, so that the buffer grows only as far as the output does.
class QuotedPrintableDecoder {
public:
    QuotedPrintableDecoder(std::string_view in, ByteBuffer& out)
        : _in(in), _out(out), _size(out.size()), _stripFrom(out.size()) {}

    void run() {
        constexpr std::size_t kBlock = 16 * 1024;
        while (_at < _in.size()) decodeUpTo(_at + std::min(kBlock, _in.size() - _at));
    }

private:
    /// An escape may lead a little further.
    void decodeUpTo(std::size_t end) {
        _to = _out.reserve(end - _at + kCopyStride) - _out.size();
        while (_at < end) {
            if (_in[_at] == '=') {
                takeEscape();
                continue;
            }
            if (_in[_at] == '\n') stripSpaces();
            const auto copied = copyPlain(_in.substr(_at, end - _at), _to + _size);
            _at += copied;
            _size += copied;
        }
        _out.truncate(0);  // spaces of the block before may have gone too
        _out.commit(_size);
    }

    /// Spaces before a line end were put there on the way, all but those that were encoded.
    void stripSpaces() {
        while (_size > _stripFrom && _to[_size - 1] == ' ') --_size;
    }

    void takeEscape() {
        const auto left = _in.size() - _at;
        if (left > 1 && (_in[_at + 1] == ' ' || _in[_at + 1] == '\n')) {
            const auto end = softBreakEnd(_in, _at);
            _at = end > _at ? end : _at + 1;  // without a line end the spaces are text
            _stripFrom = _size;
        } else if (left > 2) {
            _to[_size++] = byteFromHex(_in[_at + 1], _in[_at + 2]);
            _at += 3;
            _stripFrom = _size;
        } else {
            ++_at;
        }
    }

    const std::string_view _in;
    ByteBuffer& _out;
    std::size_t _at = 0;
    std::uint8_t* _to = nullptr;  // the start of the buffer
    std::size_t _size;            // of the buffer
    std::size_t _stripFrom;       // spaces before this stay
};

}  // namespace

void appendDecodedQuotedPrintable(ByteBuffer& out, std::string_view in) {
    QuotedPrintableDecoder(in, out).run();
}

Data decodeQuotedPrintable(const Data& data) {
    ByteBuffer out(data.size() / 3);
    appendDecodedQuotedPrintable(out, data.view());
    return out.data();
}

}  // namespace lorvale
