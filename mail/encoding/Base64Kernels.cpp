#include "mail/encoding/Base64Kernels.h"

#include <array>
#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace lorvale {

namespace {

constexpr std::uint32_t kBadSymbol = 0xFF000000;

/// The bits of each symbol at its place in a group of 24 bits; kBadSymbol for a byte outside the alphabet.
constexpr auto symbolTables = [] {
    std::array<std::array<std::uint32_t, 256>, 4> tables{};
    for (auto& table : tables) table.fill(kBadSymbol);
    for (std::uint32_t value = 0; value < 64; ++value)
        for (std::uint32_t place = 0; place < 4; ++place)
            tables[place][static_cast<std::uint8_t>(kBase64Alphabet[value])] = value << (18 - 6 * place);
    return tables;
}();

/// The two characters for each value of 12 bits: half as many look-ups as with one character each.
constexpr auto pairTable = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i)
        pairs[i] = {kBase64Alphabet[i >> 6], kBase64Alphabet[i & 63]};
    return pairs;
}();

std::size_t lineEndsAt(std::string_view in) {
    std::size_t count = 0;
    while (count < in.size() && (in[count] == '\n' || in[count] == '\r')) ++count;
    return count;
}

/// The 24 bits of the four symbols at `in`, with bits of kBadSymbol set when one is outside the alphabet.
std::uint32_t groupAt(const char* in) {
    const auto symbol = [in](std::size_t place) {
        return symbolTables[place][static_cast<std::uint8_t>(in[place])];
    };
    return symbol(0) | symbol(1) | symbol(2) | symbol(3);
}

void writeGroup(std::uint32_t bits, std::uint8_t* out) {
    out[0] = static_cast<std::uint8_t>(bits >> 16);
    out[1] = static_cast<std::uint8_t>(bits >> 8);
    out[2] = static_cast<std::uint8_t>(bits);
}

Base64Progress decodePortably(std::string_view in, std::uint8_t* out) {
    Base64Progress done;
    for (;;) {
        while (in.size() - done.read >= 4) {
            const auto bits = groupAt(in.data() + done.read);
            if ((bits & kBadSymbol) != 0) break;
            writeGroup(bits, out + done.written);
            done.read += 4;
            done.written += 3;
        }
        const auto passed = lineEndsAt(in.substr(done.read));
        if (passed == 0) return done;
        done.read += passed;
    }
}

Base64Progress encodeLinesPortably(std::string_view in, std::uint8_t* out) {
    Base64Progress done;
    for (; in.size() - done.read >= kBase64LineInput; done.read += kBase64LineInput) {
        for (std::size_t i = 0; i < kBase64LineInput; i += 3) {
            const auto byte = [&](std::size_t n) {
                return std::uint32_t{static_cast<std::uint8_t>(in[done.read + i + n])};
            };
            const auto bits = byte(0) << 16 | byte(1) << 8 | byte(2);
            std::memcpy(out + done.written, pairTable[bits >> 12].data(), 2);
            std::memcpy(out + done.written + 2, pairTable[bits & 0xFFF].data(), 2);
            done.written += 4;
        }
        out[done.written++] = '\n';
    }
    return done;
}

#if defined(__x86_64__)
// Thirty-two symbols at a time, after W. Mula and D. Lemire, "Faster Base64 Encoding and Decoding Using AVX2
// Instructions" (2018): symbols and values are told apart by their high and low half-bytes, each looked up with
// one shuffle.
#define LORVALE_AVX2 __attribute__((target("avx2")))

constexpr std::size_t kStride = 32;            // symbols in one step
constexpr std::size_t kStrideBytes = 24;       // the bytes they stand for
constexpr std::size_t kLongestLine = 4 * 256;  // a longer line gains nothing from being expected

struct DecodedStride {
    __m256i bytes;  // in the low 24; the others are 0
    __m256i bad;    // not 0 in the places of symbols outside the alphabet
};

LORVALE_AVX2 inline DecodedStride decodeStride(const char* in) {
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
    const auto bad = _mm256_and_si256(_mm256_shuffle_epi8(lowTable, low), _mm256_shuffle_epi8(highTable, high));
    const auto isSlash = _mm256_cmpeq_epi8(symbols, slash);
    const auto values =
        _mm256_add_epi8(symbols, _mm256_shuffle_epi8(shiftTable, _mm256_add_epi8(isSlash, high)));
    // Four values of 6 bits to 24 bits, then the 24 bits of each lane together and in the order of memory.
    const auto pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    const auto groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const auto packed =
        _mm256_shuffle_epi8(groups, _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,  //
                                                     2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    return {_mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7)), bad};
}

LORVALE_AVX2 inline void storeStride(const DecodedStride& stride, std::uint8_t* out) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), stride.bytes);
}

/// A whole line of `length` symbols, which is a multiple of 4 and at least a stride: all strides are decoded
/// before the first look at their outcome, so that nothing waits.  The last stride overlaps the one before.
LORVALE_AVX2 inline bool decodeLine(const char* in, std::size_t length, std::uint8_t* out) {
    auto bad = _mm256_setzero_si256();
    for (std::size_t i = 0; i + kStride < length; i += kStride) {
        const auto stride = decodeStride(in + i);
        storeStride(stride, out + i / 4 * 3);
        bad = _mm256_or_si256(bad, stride.bad);
    }
    const auto last = decodeStride(in + length - kStride);
    storeStride(last, out + (length - kStride) / 4 * 3);
    bad = _mm256_or_si256(bad, last.bad);
    return _mm256_testz_si256(bad, bad) != 0;
}

LORVALE_AVX2 Base64Progress decodeWithAVX2(std::string_view in, std::uint8_t* out) {
    // A stride stores 32 bytes, 8 more than it decodes: with so much input ahead they stay inside the room.
    constexpr std::size_t kAhead = kStride + 12;
    Base64Progress done;
    std::size_t lineStart = 0;
    std::size_t expected = 0;  // the length of the line before: the lines of a mail have one length
    for (;;) {
        const auto* const here = in.data() + done.read;
        const auto left = in.size() - done.read;
        if (expected >= kStride && left >= expected + kAhead && here[expected] == '\n' &&
            decodeLine(here, expected, out + done.written)) {
            done.read += expected + 1;
            done.written += expected / 4 * 3;
            lineStart = done.read;
            continue;
        }
        if (left < kAhead) break;
        const auto stride = decodeStride(here);
        storeStride(stride, out + done.written);
        const auto good = _mm256_cmpeq_epi8(stride.bad, _mm256_setzero_si256());
        const auto badMask = ~static_cast<std::uint32_t>(_mm256_movemask_epi8(good));
        const auto groups = static_cast<std::size_t>(std::countr_zero(badMask)) / 4;  // 8 when none is bad
        done.read += groups * 4;
        done.written += groups * 3;
        if (groups == kStride / 4) continue;
        const auto passed = lineEndsAt(in.substr(done.read));
        if (passed == 0) return done;
        const auto length = done.read - lineStart;
        expected = length % 4 == 0 && length <= kLongestLine ? length : 0;
        done.read += passed;
        lineStart = done.read;
    }
    const auto rest = decodePortably(in.substr(done.read), out + done.written);
    return {done.read + rest.read, done.written + rest.written};
}

/// Reads 28 bytes at `in`, of which the first 24 give the 32 characters written.
LORVALE_AVX2 inline void encodeStride(const char* in, std::uint8_t* out) {
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

LORVALE_AVX2 Base64Progress encodeLinesWithAVX2(std::string_view in, std::uint8_t* out) {
    constexpr std::size_t kLast = kBase64LineInput - kStrideBytes;  // the last stride overlaps the one before
    Base64Progress done;
    while (in.size() - done.read >= kLast + 28) {
        const auto* const here = in.data() + done.read;
        auto* const line = out + done.written;
        encodeStride(here, line);
        encodeStride(here + kStrideBytes, line + kStride);
        encodeStride(here + kLast, line + kLast / 3 * 4);
        line[kBase64LineOutput - 1] = '\n';
        done.read += kBase64LineInput;
        done.written += kBase64LineOutput;
    }
    const auto rest = encodeLinesPortably(in.substr(done.read), out + done.written);
    return {done.read + rest.read, done.written + rest.written};
}

constexpr Base64Kernels kAVX2Kernels{decodeWithAVX2, encodeLinesWithAVX2};
#endif

}  // namespace

const Base64Kernels kPortableBase64Kernels{decodePortably, encodeLinesPortably};

const Base64Kernels& base64Kernels() {
#if defined(__x86_64__)
    static const bool hasAVX2 = __builtin_cpu_supports("avx2") != 0;
    if (hasAVX2) return kAVX2Kernels;
#endif
    return kPortableBase64Kernels;
}

}  // namespace lorvale
