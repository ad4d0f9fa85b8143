#include "mail/stores/ByteDigest.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace lorvale {

namespace {

// Odd, so that multiplying loses nothing, with as many ones as zeros in no order.
constexpr std::uint64_t kFirst = 0x9E3779B185EBCA87, kSecond = 0xC2B2AE3D27D4EB4F, kThird = 0x165667B19E3779F9;

/// For a given state another word always gives another state, and another state stays another.
std::uint64_t stirred(std::uint64_t state, std::uint64_t word) {
    return std::rotl(state + word * kSecond, 31) * kFirst;
}

}  // namespace

void ByteDigest::mix(Lanes& lanes, const char* bytes, std::size_t blocks) {
    auto [a, b, c, d] = lanes;  // four chains that the processor runs side by side
    for (; blocks > 0; --blocks, bytes += kBlock) {
        std::array<std::uint64_t, 4> words;
        std::memcpy(words.data(), bytes, kBlock);
        a = stirred(a, words[0]);
        b = stirred(b, words[1]);
        c = stirred(c, words[2]);
        d = stirred(d, words[3]);
    }
    lanes = {a, b, c, d};
}

void ByteDigest::add(std::string_view bytes) {
    const auto held = static_cast<std::size_t>(_size % kBlock);
    _size += bytes.size();
    if (held > 0) {
        const auto taken = bytes.copy(_waiting.data() + held, kBlock - held);
        bytes.remove_prefix(taken);
        if (held + taken < kBlock) return;
        mix(_lanes, _waiting.data(), 1);
    }
    const auto blocks = bytes.size() / kBlock;
    mix(_lanes, bytes.data(), blocks);
    bytes.remove_prefix(blocks * kBlock);
    bytes.copy(_waiting.data(), bytes.size());
}

std::uint32_t ByteDigest::value() const {
    auto lanes = _lanes;
    if (const auto held = static_cast<std::size_t>(_size % kBlock); held > 0) {
        auto last = _waiting;
        std::ranges::fill(last.begin() + static_cast<std::ptrdiff_t>(held), last.end(), '\0');
        mix(lanes, last.data(), 1);
    }
    auto all = _size;  // tells zeros at the end from none
    for (const auto lane : lanes) all = stirred(all, lane);
    all ^= all >> 33;
    all *= kThird;
    return static_cast<std::uint32_t>(all ^ all >> 32);
}

}  // namespace lorvale
