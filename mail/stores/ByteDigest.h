#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace lorvale {

/// A number of 32 bits made of a run of bytes, which may come in any pieces: it tells whether bytes are still
/// the same.  Of changes all but one in four thousand million show.  It runs at the speed of memory and is no
/// protection against somebody who means to forge.  It depends on the processor's byte order, so it is not for
/// files.
class ByteDigest {
public:
    void add(std::string_view bytes);
    /// Of all bytes so far; more may follow.
    std::uint32_t value() const;

private:
    static constexpr std::size_t kBlock = 32;
    using Lanes = std::array<std::uint64_t, 4>;

    static void mix(Lanes& lanes, const char* bytes, std::size_t blocks);

    Lanes _lanes{0x60EA27EEADC0B5D6, 0xC2B2AE3D27D4EB4F, 0, 0x61C8864E7A143579};
    std::array<char, kBlock> _waiting{};  // the last bytes, which do not fill a block yet
    std::uint64_t _size = 0;
};

inline std::uint32_t digestOf(std::string_view bytes) {
    ByteDigest digest;
    digest.add(bytes);
    return digest.value();
}

}  // namespace lorvale
