#pragma once
#include <cctype>
#include <cstdint>
#include <string>
#include <string_view>

/// The rules of the codecs written down byte by byte, without a thought for speed.  Tests and fuzz targets hold
/// the codecs of the library against them.
namespace lorvale::testing {

inline constexpr std::string_view kPlainBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
inline constexpr std::string_view kPlainWhite = "\t\n\f\r ";

inline std::string plainDecodeBase64(std::string_view in) {
    std::string out;
    unsigned bits = 0;
    std::size_t count = 0, pads = 0;
    for (const char c : in) {
        if ((static_cast<std::uint8_t>(c) & 0x7F) == '=') {
            ++pads;
        } else if (kPlainWhite.find(c) == std::string_view::npos) {
            pads = 0;
        }
        const char low = static_cast<char>(c & 0x7F);
        const auto value = low == '=' ? 0 : kPlainBase64.find(low);
        if (value == std::string_view::npos) continue;
        bits = bits << 6 | static_cast<unsigned>(value);
        if (++count % 4 != 0) continue;
        out += static_cast<char>(bits >> 16);
        if (pads < 2) out += static_cast<char>(bits >> 8);
        if (pads < 1) out += static_cast<char>(bits);
    }
    return out;
}

inline std::string plainEncodeBase64(std::string_view in) {
    std::string out;
    std::size_t column = 0;
    for (std::size_t i = 0; i < in.size(); i += 3) {
        unsigned bits = 0;
        for (std::size_t k = 0; k < 3; ++k)
            bits = bits << 8 | (i + k < in.size() ? static_cast<std::uint8_t>(in[i + k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            out += k <= in.size() - i ? kPlainBase64[bits >> (18 - 6 * k) & 63] : '=';
        column += 4;
        if (column == 76) out += '\n', column = 0;
    }
    if (column > 0) out += '\n';
    return out;
}

inline int plainHexDigit(char c) {
    const std::string_view upper = "0123456789ABCDEF", lower = "0123456789abcdef";
    c = static_cast<char>(c & 0x7F);
    if (const auto i = upper.find(c); i != std::string_view::npos) return static_cast<int>(i);
    if (const auto i = lower.find(c); i != std::string_view::npos) return static_cast<int>(i);
    return 255;
}

inline std::string plainDecodeQuotedPrintable(std::string_view in) {
    std::string out;
    std::size_t spaces = 0;
    for (std::size_t i = 0; i < in.size();) {
        const char c = in[i];
        if (c != '=') {
            if (c == '\n') out.resize(out.size() - spaces);
            spaces = c == ' ' ? spaces + 1 : 0;
            out += c;
            ++i;
        } else if (i + 1 < in.size() && (in[i + 1] == ' ' || in[i + 1] == '\n')) {
            std::size_t end = i + 1;
            while (end < in.size() && in[end] == ' ') ++end;
            i = end < in.size() && in[end] == '\n' ? end + 1 : i + 1;
            spaces = 0;
        } else if (in.size() - i > 2) {
            out += static_cast<char>((plainHexDigit(in[i + 1]) * 16 + plainHexDigit(in[i + 2])) % 256);
            i += 3;
            spaces = 0;
        } else {
            ++i;
        }
    }
    return out;
}

inline std::string plainEncodeQuotedPrintable(std::string_view in) {
    std::string out;
    std::size_t column = 0, lookahead = 0;
    for (std::size_t i = 0; i < in.size(); ++i) {
        const char c = in[i];
        const bool isBlank = c == ' ' || c == '\t';
        const bool isLast = i + 1 == in.size() || in[i + 1] == '\n';
        bool escape = (c < '!' || c == '=' || c > '~') && c != '\n' && (!isBlank || isLast);
        if (in.substr(i).starts_with("From ") && in.size() - i > 5) escape = true;
        if (escape) {
            const std::string_view digits = "0123456789ABCDEF";
            out += '=';
            out += digits[static_cast<std::uint8_t>(c) >> 4];
            out += digits[c & 15];
            column += 3;
        } else {
            out += c;
            column = c == '\t' ? (column / 8 + 1) * 8 : c == '\n' ? 0 : column + 1;
        }
        if (i == lookahead) {
            lookahead = std::min(in.find_first_of(kPlainWhite, i + 1), in.size());
            if (lookahead - i + column > 73) column = 99;
        }
        if (column > 73) out += "=\n", column = 0;
    }
    if (column > 0) out += "=\n";
    return out;
}

/// A BinHex 4.0 file.  `escapeEvery`: run marks in the data are always escaped; runs of at least that length
/// are packed (0: never).
inline std::string plainEncodeBinHex(std::string_view name, std::string_view data, std::size_t packFrom) {
    std::string file(1, static_cast<char>(name.size()));
    file += name;
    file += std::string_view("\0TEXTttxt\0\0", 11);
    for (const int shift : {24, 16, 8, 0}) file += static_cast<char>(data.size() >> shift);
    file.append(6, '\0');
    file += data;
    std::string packed;
    for (std::size_t i = 0; i < file.size();) {
        std::size_t run = 1;
        while (run < 255 && i + run < file.size() && file[i + run] == file[i]) ++run;
        const bool packs = packFrom > 1 && run >= packFrom;
        packed += file[i];
        // As the first byte of all the mark is an ordinary one, with nothing behind it.
        if (file[i] == '\x90' && packed.size() > 1) packed += '\0';
        if (packs) packed += '\x90', packed += static_cast<char>(run);
        i += packs ? run : 1;
    }
    packed.append((3 - packed.size() % 3) % 3, '\0');
    const std::string_view symbols = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
    std::string out = ":";
    for (std::size_t i = 0; i < packed.size(); i += 3) {
        unsigned bits = 0;
        for (std::size_t k = 0; k < 3; ++k) bits = bits << 8 | static_cast<std::uint8_t>(packed[i + k]);
        for (std::size_t k = 0; k < 4; ++k) out += symbols[bits >> (18 - 6 * k) & 63];
        if (i % 48 == 45) out += '\n';
    }
    return out + ":\n";
}

}  // namespace lorvale::testing
