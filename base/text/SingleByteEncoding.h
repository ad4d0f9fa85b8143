#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lorvale {

/// An encoding of one byte a character whose lower half is ASCII.  Every byte stands for a character and no two
/// for the same one.  Immutable.
class SingleByteEncoding {
public:
    static const SingleByteEncoding& isoLatin1();
    static const SingleByteEncoding& tarn();
    /// Asks the OS's iconv for the upper half, once; null when it does not know the encoding.  A byte that it
    /// leaves undefined is the control character of the same number.
    static const SingleByteEncoding* isoLatin2();
    static const SingleByteEncoding* windowsCP1250();
    static const SingleByteEncoding* windowsCP1252();

    std::string decode(std::string_view bytes) const;
    /// The byte of a character above 0x7F.
    std::optional<std::uint8_t> byteFor(char32_t c) const;

private:
    struct Character {
        char16_t code;
        std::uint8_t byte;
    };
    using UpperHalf = std::array<char16_t, 128>;

    explicit SingleByteEncoding(const UpperHalf& upperHalf);
    static std::optional<SingleByteEncoding> fromIconv(const char* name);

    UpperHalf _upperHalf;                  // by byte - 0x80
    std::array<Character, 128> _byCode{};  // sorted
};

}  // namespace lorvale
