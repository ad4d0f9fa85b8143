#include "mail/imap/MailboxNames.h"

#include <array>
#include <cstdint>
#include <optional>

#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+,";

constexpr auto kDigitValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < kDigits.size(); ++i)
        values[static_cast<std::uint8_t>(kDigits[i])] = static_cast<std::int8_t>(i);
    return values;
}();

constexpr bool standsForItself(char c) {
    return c >= ' ' && c <= '~';
}

/// A run of characters that stand behind "&", put out six bits at a time.
class RunWriter {
public:
    explicit RunWriter(std::string& out) : _out(out) {}

    void add(char32_t character) {
        if (isBadByte(character)) character -= kBadByte;
        if (character < 0x10000) {
            addUnit(static_cast<std::uint32_t>(character));
        } else {
            addUnit(0xD800 + ((static_cast<std::uint32_t>(character) - 0x10000) >> 10));
            addUnit(0xDC00 + ((static_cast<std::uint32_t>(character) - 0x10000) & 0x3FF));
        }
    }
    void end() {
        if (!_isOpen) return;
        if (_count > 0) put(_bits << (6 - _count));
        _out += '-';
        _isOpen = false;
        _count = 0;
    }

private:
    void addUnit(std::uint32_t unit) {
        if (!_isOpen) _out += '&';
        _isOpen = true;
        _bits = (_bits << 16) | unit;
        for (_count += 16; _count >= 6; _count -= 6) put(_bits >> (_count - 6));
    }
    void put(std::uint32_t bits) { _out += kDigits[bits & 63]; }

    std::string& _out;
    std::uint32_t _bits = 0;  // of which the lowest _count are still to be put out
    int _count = 0;
    bool _isOpen = false;
};

/// The characters of a run without its "&" and "-"; nullopt for one that modifiedUtf7() would never write.
std::optional<std::string> charactersOfRun(std::string_view run) {
    std::string text;
    std::uint32_t bits = 0, high = 0;
    int count = 0;
    for (const char digit : run) {
        const auto value = kDigitValues[static_cast<std::uint8_t>(digit)];
        if (value < 0) return std::nullopt;
        bits = (bits << 6) | static_cast<std::uint32_t>(value);
        count += 6;
        if (count < 16) continue;
        count -= 16;
        const std::uint32_t unit = (bits >> count) & 0xFFFF;
        const bool isHigh = unit >= 0xD800 && unit < 0xDC00, isLow = unit >= 0xDC00 && unit < 0xE000;
        if ((high != 0) != isLow || (unit < 0x80 && standsForItself(static_cast<char>(unit))))
            return std::nullopt;
        if (isHigh)
            high = unit;
        else
            appendUtf8(text, isLow ? 0x10000 + ((high - 0xD800) << 10) + (unit - 0xDC00) : unit);
        if (isLow) high = 0;
    }
    if (high != 0 || text.empty() || (bits & ((1U << count) - 1)) != 0 || count >= 6) return std::nullopt;
    return text;
}

}  // namespace

std::string modifiedUtf7(std::string_view name) {
    std::string written;
    RunWriter run(written);
    while (!name.empty()) {
        const auto character = nextCodePoint(name);
        if (character >= 0x80 || !standsForItself(static_cast<char>(character))) {
            run.add(character);
            continue;
        }
        run.end();
        written += static_cast<char>(character);
        if (character == '&') written += '-';
    }
    run.end();
    return written;
}

std::string fromModifiedUtf7(std::string_view name) {
    std::string read;
    while (!name.empty()) {
        const auto plain = name.substr(0, name.find('&'));
        read += plain;
        name.remove_prefix(plain.size());
        if (name.empty()) break;
        const auto end = name.find('-');
        const auto run = name.substr(1, end == std::string_view::npos ? end : end - 1);
        const auto text = end == 1 ? std::optional<std::string>("&") : charactersOfRun(run);
        // Where no "-" is left, no later "&" begins a run either.
        const auto taken = end == std::string_view::npos ? name.size() : text ? end + 1 : 1;
        read += text && end != std::string_view::npos ? *text : std::string(name.substr(0, taken));
        name.remove_prefix(taken);
    }
    return read;
}

}  // namespace lorvale
