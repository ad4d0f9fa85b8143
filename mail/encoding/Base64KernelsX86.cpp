#include "mail/encoding/Base64Kernels.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include <array>
#endif

// After W. Mula and D. Lemire, "Faster Base64 Encoding and Decoding Using AVX2 Instructions" (2018) and "Base64
// Encoding and Decoding at Almost the Speed of a Memory Copy" (2019).  All strides of a line are decoded before
// the first look at whether they were clean, so that nothing waits for the outcome; the last stride of a line
// overlaps the one before it.

namespace lorvale {

#if defined(__x86_64__)

namespace {

#define LORVALE_AVX2 __attribute__((target("avx2")))
#define LORVALE_VBMI __attribute__((target("avx512f,avx512bw,avx512vbmi")))

// AVX2: 32 symbols for 24 bytes at a time.

constexpr std::size_t kShort = 32, kShortBytes = 24;

/// Decodes 32 symbols into the first 24 of the 32 bytes written, and adds the places of bytes outside the
/// alphabet to `bad`.  Symbols are told apart by their high and low half-bytes, each looked up with one
/// shuffle.
LORVALE_AVX2 inline __m256i decodeShort(const char* in, std::uint8_t* out, __m256i bad) {
    const auto symbols = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
    const auto lowTable = _mm256_setr_epi8(
        0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A,  //
        0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
    const auto highTable = _mm256_setr_epi8(
        0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10,  //
        0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
    const auto shiftTable = _mm256_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                             0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
    // 0x2F serves as the mask too: the shuffles look at bit 7 and at bits 0 to 3 only.
    const auto slash = _mm256_set1_epi8(0x2F);
    const auto high = _mm256_and_si256(_mm256_srli_epi32(symbols, 4), slash);
    const auto low = _mm256_and_si256(symbols, slash);
    const auto isSlash = _mm256_cmpeq_epi8(symbols, slash);
    const auto values =
        _mm256_add_epi8(symbols, _mm256_shuffle_epi8(shiftTable, _mm256_add_epi8(isSlash, high)));
    // Four values of 6 bits to 24 bits, then the 24 bits of each lane together and in the order of memory.
    const auto pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    const auto groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const auto packed =
        _mm256_shuffle_epi8(groups, _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,  //
                                                     2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    const auto bytes = _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), bytes);
    return _mm256_or_si256(
        bad, _mm256_and_si256(_mm256_shuffle_epi8(lowTable, low), _mm256_shuffle_epi8(highTable, high)));
}

LORVALE_AVX2 Base64Progress decodeLinesAVX2(std::string_view in, std::size_t length, bool hasLineEnds,
                                            std::uint8_t* out) {
    // The last stride stores 8 bytes too many: with 12 symbols more ahead there is room for them.
    const auto step = length + (hasLineEnds ? 1 : 0);
    Base64Progress done;
    if (length % 4 != 0 || length < kShort) return done;
    for (; in.size() - done.read >= step + 12; done.read += step, done.written += length / 4 * 3) {
        const auto* const line = in.data() + done.read;
        auto* const to = out + done.written;
        if (hasLineEnds && line[length] != '\n') break;
        auto bad = _mm256_setzero_si256();
        for (std::size_t i = 0; i + kShort < length; i += kShort)
            bad = decodeShort(line + i, to + i / 4 * 3, bad);
        bad = decodeShort(line + length - kShort, to + (length - kShort) / 4 * 3, bad);
        if (_mm256_testz_si256(bad, bad) == 0) break;
    }
    return done;
}

/// Reads 28 bytes at `in`, of which the first 24 give the 32 characters written.
LORVALE_AVX2 inline void encodeShort(const char* in, std::uint8_t* out) {
    const auto low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    const auto high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 12));
    const auto both = _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
    const auto groups =
        _mm256_shuffle_epi8(both, _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10,  //
                                                   1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    const auto upper = _mm256_mulhi_epu16(_mm256_and_si256(groups, _mm256_set1_epi32(0x0FC0FC00)),
                                          _mm256_set1_epi32(0x04000040));
    const auto lower = _mm256_mullo_epi16(_mm256_and_si256(groups, _mm256_set1_epi32(0x003F03F0)),
                                          _mm256_set1_epi32(0x01000010));
    const auto values = _mm256_or_si256(upper, lower);
    // How far each value lies from its character: entry 13 for "A" to "Z", 0 for "a" to "z", 1 to 10 for the
    // digits, 11 and 12 for "+" and "/".
    const auto shiftTable = _mm256_setr_epi8(71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 65, 0, 0,  //
                                             71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 65, 0, 0);
    const auto isUpperCase = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
    const auto entry = _mm256_or_si256(_mm256_subs_epu8(values, _mm256_set1_epi8(51)),
                                       _mm256_and_si256(isUpperCase, _mm256_set1_epi8(13)));
    const auto characters = _mm256_add_epi8(values, _mm256_shuffle_epi8(shiftTable, entry));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), characters);
}

LORVALE_AVX2 Base64Progress encodeLinesAVX2(std::string_view in, std::uint8_t* out) {
    constexpr std::size_t kLast = kBase64LineInput - kShortBytes;
    Base64Progress done;
    while (in.size() - done.read >= kLast + 28) {
        const auto* const here = in.data() + done.read;
        auto* const line = out + done.written;
        encodeShort(here, line);
        encodeShort(here + kShortBytes, line + kShort);
        encodeShort(here + kLast, line + kLast / 3 * 4);
        line[kBase64LineOutput - 1] = '\n';
        done.read += kBase64LineInput;
        done.written += kBase64LineOutput;
    }
    return done;
}

// AVX-512 VBMI: 64 symbols for 48 bytes at a time, with tables of 64 and 128 entries in registers.

constexpr std::size_t kLong = 64, kLongBytes = 48;
constexpr __mmask64 kAll = ~__mmask64{0};  // the forms without a mask make gcc 12 warn of its own header

struct alignas(64) LongTable {
    std::array<std::uint8_t, 64> entries{};
};

constexpr std::uint8_t kBad = 0x80;

/// The values of the symbols from `first` on; kBad for the others.
constexpr LongTable valuesFrom(std::size_t first) {
    LongTable table;
    table.entries.fill(kBad);
    for (std::size_t value = 0; value < kBase64Alphabet.size(); ++value) {
        const auto symbol = static_cast<std::size_t>(kBase64Alphabet[value]);
        if (symbol / kLong == first / kLong) table.entries[symbol - first] = static_cast<std::uint8_t>(value);
    }
    return table;
}
constexpr LongTable lowerValues = valuesFrom(0), upperValues = valuesFrom(kLong);

/// Where the bytes of a decoded stride come from: three of each four, the last one first.
constexpr auto packOrder = [] {
    LongTable table;
    for (std::size_t i = 0; i < kLongBytes; ++i)
        table.entries[i] = static_cast<std::uint8_t>(i / 3 * 4 + 2 - i % 3);
    return table;
}();

/// Four bytes for each three: the second, the first, the third and the second, from which shifts get the
/// values.
constexpr auto spreadOrder = [] {
    LongTable table;
    constexpr std::size_t order[] = {1, 0, 2, 1};
    for (std::size_t i = 0; i < kLong; ++i)
        table.entries[i] = static_cast<std::uint8_t>(i / 4 * 3 + order[i % 4]);
    return table;
}();

constexpr auto alphabetTable = [] {
    LongTable table;
    for (std::size_t i = 0; i < kLong; ++i) table.entries[i] = static_cast<std::uint8_t>(kBase64Alphabet[i]);
    return table;
}();

LORVALE_VBMI inline __m512i load(const LongTable& table) {
    return _mm512_load_si512(table.entries.data());
}

/// Decodes 64 symbols into the first 48 of the 64 bytes written; bit 7 of `bad` tells of bytes outside the
/// alphabet.
LORVALE_VBMI inline __m512i decodeLong(const char* in, std::uint8_t* out, __m512i bad) {
    const auto symbols = _mm512_loadu_si512(in);
    const auto values = _mm512_permutex2var_epi8(load(lowerValues), symbols, load(upperValues));
    const auto pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi32(0x01400140));
    const auto groups = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
    _mm512_storeu_si512(out, _mm512_maskz_permutexvar_epi8(kAll, load(packOrder), groups));
    return _mm512_or_si512(bad, _mm512_or_si512(values, symbols));
}

LORVALE_VBMI Base64Progress decodeLinesVBMI(std::string_view in, std::size_t length, bool hasLineEnds,
                                            std::uint8_t* out) {
    if (length < kLong) return decodeLinesAVX2(in, length, hasLineEnds, out);
    // The last stride stores 16 bytes too many: with 24 symbols more ahead there is room for them.
    const auto step = length + (hasLineEnds ? 1 : 0);
    Base64Progress done;
    if (length % 4 != 0) return done;
    for (; in.size() - done.read >= step + 24; done.read += step, done.written += length / 4 * 3) {
        const auto* const line = in.data() + done.read;
        auto* const to = out + done.written;
        if (hasLineEnds && line[length] != '\n') break;
        auto bad = _mm512_setzero_si512();
        for (std::size_t i = 0; i + kLong < length; i += kLong) bad = decodeLong(line + i, to + i / 4 * 3, bad);
        bad = decodeLong(line + length - kLong, to + (length - kLong) / 4 * 3, bad);
        if (_mm512_movepi8_mask(bad) != 0) break;
    }
    return done;
}

/// Reads 64 bytes at `in`, of which the first 48 give the 64 characters written.
LORVALE_VBMI inline void encodeLong(const char* in, std::uint8_t* out) {
    const auto spread = _mm512_maskz_permutexvar_epi8(kAll, load(spreadOrder), _mm512_loadu_si512(in));
    // Where the six bits of each value begin in the 64 bits that hold two groups.
    const auto shifts = _mm512_set1_epi64(0x3036242A1016040A);
    const auto values = _mm512_maskz_multishift_epi64_epi8(kAll, shifts, spread);
    _mm512_storeu_si512(out, _mm512_maskz_permutexvar_epi8(kAll, values, load(alphabetTable)));
}

LORVALE_VBMI Base64Progress encodeLinesVBMI(std::string_view in, std::uint8_t* out) {
    constexpr std::size_t kLast = kBase64LineInput - kLongBytes;
    Base64Progress done;
    while (in.size() - done.read >= kLast + kLong) {
        const auto* const here = in.data() + done.read;
        auto* const line = out + done.written;
        encodeLong(here, line);
        encodeLong(here + kLast, line + kLast / 3 * 4);
        line[kBase64LineOutput - 1] = '\n';
        done.read += kBase64LineInput;
        done.written += kBase64LineOutput;
    }
    return done;
}

constexpr Base64Kernels kKernels[] = {{"AVX2", decodeLinesAVX2, encodeLinesAVX2},
                                      {"AVX-512 VBMI", decodeLinesVBMI, encodeLinesVBMI}};

}  // namespace

std::span<const Base64Kernels> base64KernelsOfProcessor() {
    if (__builtin_cpu_supports("avx2") == 0) return {};
    const bool hasVBMI = __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
                         __builtin_cpu_supports("avx512vbmi") != 0;
    return std::span(kKernels).first(hasVBMI ? 2 : 1);
}

#else

std::span<const Base64Kernels> base64KernelsOfProcessor() {
    return {};
}

#endif

}  // namespace lorvale
