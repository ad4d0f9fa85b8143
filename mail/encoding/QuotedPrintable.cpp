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

constexpr std::size_t kCopyStride = 16;

/// Copies up to the first "=" or the first line end behind a space, and answers how many bytes that is.  `out`
/// has room for kCopyStride bytes more than `in` holds.
std::size_t copyPlain(std::string_view in, std::uint8_t* out) {
    std::size_t i = 0;
#if defined(__SSE2__)
    const auto equals = _mm_set1_epi8('='), space = _mm_set1_epi8(' '), newline = _mm_set1_epi8('\n');
    for (; in.size() - i > kCopyStride; i += kCopyStride) {
        const auto here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in.data() + i));
        const auto next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in.data() + i + 1));
        const auto spaceAtLineEnd = _mm_and_si128(_mm_cmpeq_epi8(here, space), _mm_cmpeq_epi8(next, newline));
        const auto stops = _mm_or_si128(_mm_cmpeq_epi8(here, equals), spaceAtLineEnd);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), here);
        if (const auto mask = static_cast<std::uint32_t>(_mm_movemask_epi8(stops)); mask != 0) {
            i += static_cast<std::size_t>(std::countr_zero(mask));
            return in[i] == ' ' ? i + 1 : i;
        }
    }
#endif
    for (; i < in.size() && in[i] != '='; ++i) {
        if (in[i] == '\n' && i > 0 && in[i - 1] == ' ') break;
        out[i] = static_cast<std::uint8_t>(in[i]);
    }
    return i;
}

/// Removes the spaces at the end of the buffer, but none of the first `keep` bytes.
void stripSpaces(ByteBuffer& out, std::size_t keep) {
    auto size = out.size();
    while (size > keep && out.view()[size - 1] == ' ') --size;
    out.truncate(size);
}

/// What a "=" at the start of `in` takes of it: appends the byte it stands for, if any, and answers the length.
std::size_t takeEscape(std::string_view in, ByteBuffer& out) {
    if (in.size() > 1 && (in[1] == ' ' || in[1] == '\n')) {
        const auto end = in.find_first_not_of(' ', 1);
        if (end == std::string_view::npos || in[end] != '\n') return 1;  // the spaces are text
        return end + 1;
    }
    if (in.size() < 3) return 1;
    out.append(byteFromHex(in[1], in[2]));
    return 3;
}

}  // namespace

void appendDecodedQuotedPrintable(ByteBuffer& out, std::string_view in) {
    // A block at a time, so that the buffer grows only as far as the output does.
    constexpr std::size_t kBlock = 16 * 1024;
    auto stripFrom = out.size();  // only spaces behind this were written as such: "=20" stays
    while (!in.empty()) {
        if (in[0] == '\n') stripSpaces(out, stripFrom);
        const auto block = in.substr(0, kBlock);
        const auto copied = copyPlain(block, out.reserve(block.size() + kCopyStride));
        out.commit(copied);
        in.remove_prefix(copied);
        if (in.empty() || in[0] != '=') continue;
        const auto taken = takeEscape(in, out);
        in.remove_prefix(taken);
        if (taken > 1 || (!in.empty() && in[0] == ' ')) stripFrom = out.size();
    }
}

Data decodeQuotedPrintable(const Data& data) {
    ByteBuffer out(data.size() / 3);
    appendDecodedQuotedPrintable(out, data.view());
    return out.data();
}

}  // namespace lorvale
