#pragma once
/// The classes of bytes of the C locale, whatever locale the process runs in.

namespace brindle {

constexpr bool IsUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
constexpr bool IsLower(char c) {
    return c >= 'a' && c <= 'z';
}
constexpr bool IsLetter(char c) {
    return IsUpper(c) || IsLower(c);
}
constexpr bool IsAlphanumeric(char c) {
    return IsLetter(c) || (c >= '0' && c <= '9');
}
constexpr bool IsGraphic(char c) {
    return c > ' ' && c < 0x7F;
}
constexpr bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr char ToLower(char c) {
    return IsUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}
constexpr char ToUpper(char c) {
    return IsLower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}

}  // namespace brindle
