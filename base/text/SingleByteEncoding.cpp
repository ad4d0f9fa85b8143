#include "base/text/SingleByteEncoding.h"

#include <algorithm>

#include "base/text/Iconv.h"
#include "lorvale/values/text.h"

namespace lorvale {

SingleByteEncoding::SingleByteEncoding(const UpperHalf& upperHalf) : _upperHalf(upperHalf) {
    for (std::size_t i = 0; i < _byCode.size(); ++i)
        _byCode[i] = {_upperHalf[i], static_cast<std::uint8_t>(0x80 + i)};
    std::ranges::sort(_byCode, {}, &Character::code);
}

const SingleByteEncoding& SingleByteEncoding::isoLatin1() {
    static const SingleByteEncoding encoding = [] {
        UpperHalf upper{};
        for (std::size_t i = 0; i < upper.size(); ++i) upper[i] = static_cast<char16_t>(0x80 + i);
        return SingleByteEncoding(upper);
    }();
    return encoding;
}

const SingleByteEncoding& SingleByteEncoding::tarn() {
    static const SingleByteEncoding encoding = [] {
        auto upper = isoLatin1()._upperHalf;
        upper[0xD0 - 0x80] = 0x2014;  // the em dash, at the cost of U+00D0
        return SingleByteEncoding(upper);
    }();
    return encoding;
}

std::optional<SingleByteEncoding> SingleByteEncoding::fromIconv(const char* name) {
    Iconv converter("UTF-8", name);
    if (!converter.isOpen()) return std::nullopt;
    auto upper = isoLatin1()._upperHalf;
    for (std::size_t i = 0; i < upper.size(); ++i) {
        const char byte = static_cast<char>(0x80 + i);
        const auto text = converter.convert({&byte, 1});
        if (!text) continue;
        std::string_view character = *text;
        if (!character.empty()) upper[i] = static_cast<char16_t>(nextCodePoint(character));
    }
    return SingleByteEncoding(upper);
}

const SingleByteEncoding* SingleByteEncoding::isoLatin2() {
    static const auto encoding = fromIconv("ISO-8859-2");
    return encoding ? &*encoding : nullptr;
}
const SingleByteEncoding* SingleByteEncoding::windowsCP1250() {
    static const auto encoding = fromIconv("CP1250");
    return encoding ? &*encoding : nullptr;
}
const SingleByteEncoding* SingleByteEncoding::windowsCP1252() {
    static const auto encoding = fromIconv("CP1252");
    return encoding ? &*encoding : nullptr;
}

std::string SingleByteEncoding::decode(std::string_view bytes) const {
    const auto isHigh = [](char c) { return static_cast<std::uint8_t>(c) >= 0x80; };
    std::string text;
    text.reserve(bytes.size() + 2 * static_cast<std::size_t>(std::ranges::count_if(bytes, isHigh)));
    while (!bytes.empty()) {
        const auto ascii = asciiPrefixLength(bytes);
        text += bytes.substr(0, ascii);
        bytes.remove_prefix(ascii);
        for (; !bytes.empty() && isHigh(bytes.front()); bytes.remove_prefix(1))
            appendUtf8(text, _upperHalf[static_cast<std::uint8_t>(bytes.front()) - 0x80u]);
    }
    return text;
}

std::optional<std::uint8_t> SingleByteEncoding::byteFor(char32_t c) const {
    if (c >= 0x80 && c < 0x100 && _upperHalf[c - 0x80] == c) return static_cast<std::uint8_t>(c);
    const auto found =
        std::ranges::lower_bound(_byCode, c, {}, [](const Character& entry) -> char32_t { return entry.code; });
    if (found == _byCode.end() || found->code != c) return std::nullopt;
    return found->byte;
}

}  // namespace lorvale
