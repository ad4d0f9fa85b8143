#include "base/text/Iso2022JP.h"

#include <array>
#include <cstddef>

namespace lorvale {

namespace {

/// A character set that an escape sequence switches to, and how EUC-JP marks its characters.
struct Designation {
    std::string_view escape;
    std::size_t bytes;        // a character
    std::string_view prefix;  // in EUC-JP
    bool isHigh;              // whether the bytes have the high bit set there
};

constexpr auto kDesignations = std::to_array<Designation>({
    {"\x1B(B", 1, "", false},      // ASCII
    {"\x1B(J", 1, "", false},      // JIS X 0201, the Latin half
    {"\x1B(I", 1, "\x8E", true},   // the half with kana
    {"\x1B$@", 2, "", true},       // JIS X 0208 of 1978
    {"\x1B$B", 2, "", true},       // of 1983
    {"\x1B$(D", 2, "\x8F", true},  // JIS X 0212
});

constexpr bool isControlOrBlank(char c) {
    return static_cast<unsigned char>(c) <= ' ';
}

}  // namespace

std::optional<std::string> eucFromIso2022JP(std::string_view bytes) {
    std::string euc;
    euc.reserve(bytes.size());
    const auto* set = &kDesignations.front();
    while (!bytes.empty()) {
        if (bytes.front() == '\x1B') {
            set = nullptr;
            for (const auto& designation : kDesignations)
                if (bytes.starts_with(designation.escape)) set = &designation;
            if (set == nullptr) return std::nullopt;
            bytes.remove_prefix(set->escape.size());
            continue;
        }
        const bool isPlain = !set->isHigh || isControlOrBlank(bytes.front());
        const auto length = isPlain ? 1 : set->bytes;
        if (bytes.size() < length) return std::nullopt;
        if (!isPlain) euc += set->prefix;
        for (const char c : bytes.substr(0, length)) {
            if (static_cast<unsigned char>(c) >= 0x80 || (!isPlain && isControlOrBlank(c))) return std::nullopt;
            euc += isPlain ? c : static_cast<char>(static_cast<unsigned char>(c) | 0x80u);
        }
        // A line ends in ASCII, whatever was left switched on.
        if (bytes.front() == '\n') set = &kDesignations.front();
        bytes.remove_prefix(length);
    }
    return euc;
}

}  // namespace lorvale
