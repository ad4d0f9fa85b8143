#include "base/text/Words.h"

#include <unictype.h>
#include <uniwbrk.h>
#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdint>
#include <vector>

#include "lorvale/values/text.h"

namespace lorvale {

namespace {

struct CharacterRange {
    char32_t first, last;
    constexpr bool holds(char32_t c) const { return c >= first && c <= last; }
};

/// Marks without which a word is still the same word to those who search: accents, the vowel points of Hebrew
/// and Arabic, the signs of liturgical Cyrillic.
constexpr auto kAccents = std::to_array<CharacterRange>({
    {0x0300, 0x036F},
    {0x0483, 0x0487},
    {0x0591, 0x05BD},
    {0x05BF, 0x05BF},
    {0x05C1, 0x05C2},
    {0x05C4, 0x05C5},
    {0x05C7, 0x05C7},
    {0x0610, 0x061A},
    {0x064B, 0x065F},
    {0x0670, 0x0670},
    {0x06D6, 0x06DC},
    {0x06DF, 0x06E4},
    {0x06E7, 0x06E8},
    {0x06EA, 0x06ED},
    {0x1AB0, 0x1AFF},
    {0x1DC0, 0x1DFF},
    {0x20D0, 0x20FF},
    {0xFE20, 0xFE2F},
});
static_assert(std::ranges::is_sorted(kAccents, {}, &CharacterRange::first), "found by binary search");

bool isAccent(char32_t c) {
    if (c < kAccents.front().first) return false;
    const auto after = std::ranges::upper_bound(kAccents, c, {}, &CharacterRange::first);
    return std::prev(after)->holds(c);
}

struct PlainForm {
    char32_t letter;
    std::string_view plain;
};

/// Letters of one piece, which Unicode takes apart no further but people type without their strokes; and the
/// apostrophe that word processors set.
constexpr auto kPlainForms = std::to_array<PlainForm>({
    {0x00E6, "ae"},
    {0x00F0, "d"},
    {0x00F8, "o"},
    {0x0111, "d"},
    {0x0127, "h"},
    {0x0131, "i"},
    {0x0142, "l"},
    {0x0153, "oe"},
    {0x0167, "t"},
    {0x2019, "'"},
});
static_assert(std::ranges::is_sorted(kPlainForms, {}, &PlainForm::letter), "found by binary search");

void appendPlain(std::string& folded, char32_t c) {
    const auto* const form = std::ranges::lower_bound(kPlainForms, c, {}, &PlainForm::letter);
    if (form != kPlainForms.end() && form->letter == c)
        folded += form->plain;
    else
        appendUtf8(folded, c);
}

/// Whether a character folds to itself and takes no mark of the next one: of the many Han characters all but
/// those for compatibility, which lie elsewhere.
bool isUnchanged(char32_t c) {
    return (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0x3400 && c <= 0x4DBF);
}

/// The script families without blanks, by the library's records, of which each script has one.
bool isScriptWithoutBlanks(const uc_script_t* script) {
    static const auto scripts = [] {
        std::vector<const uc_script_t*> found;
        for (const char* const name : {"Han", "Hiragana", "Katakana", "Bopomofo", "Thai", "Lao", "Khmer",
                                       "Myanmar", "Tai_Le", "New_Tai_Lue", "Tai_Tham", "Tai_Viet"})
            found.push_back(uc_script_byname(name));
        return found;
    }();
    return std::ranges::find(scripts, script) != scripts.end();
}

}  // namespace

void markWordStarts(std::string_view text, std::span<char> marks) {
    assert(marks.size() >= text.size());
    if (text.empty()) return;
    u8_wordbreaks(reinterpret_cast<const std::uint8_t*>(text.data()), text.size(), marks.data());
    marks[0] = 1;
}

bool isLetterOrNumber(char32_t c) {
    const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(c));
    return (category >= UTF8PROC_CATEGORY_LU && category <= UTF8PROC_CATEGORY_LO) ||
           (category >= UTF8PROC_CATEGORY_ND && category <= UTF8PROC_CATEGORY_NO);
}

bool joinsCharacterBefore(char32_t c) {
    if (c < 0x300 || isUnchanged(c)) return false;
    const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(c));
    return (category >= UTF8PROC_CATEGORY_MN && category <= UTF8PROC_CATEGORY_ME) ||
           category == UTF8PROC_CATEGORY_CF || c == 0xFF9E || c == 0xFF9F;
}

bool isWrittenWithoutBlanks(char32_t c) {
    if (c < 0x0E00) return false;
    if (isUnchanged(c)) return true;
    // The sign for a long vowel and the closing mark, which serve several scripts and count to none.
    if (c == 0x30FC || c == 0xFF70 || c == 0x3006) return true;
    return isScriptWithoutBlanks(uc_script(c));
}

void appendFoldedForSearch(std::string& folded, std::string_view word) {
    constexpr auto kTakeApart = static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_COMPAT |
                                                               UTF8PROC_CASEFOLD | UTF8PROC_IGNORE);
    std::array<utf8proc_int32_t, 128> few;
    std::vector<utf8proc_int32_t> many;
    std::span<utf8proc_int32_t> points = few;
    const auto takeApart = [&] {
        return utf8proc_decompose(reinterpret_cast<const utf8proc_uint8_t*>(word.data()),
                                  static_cast<utf8proc_ssize_t>(word.size()), points.data(),
                                  static_cast<utf8proc_ssize_t>(points.size()), kTakeApart);
    };
    auto count = takeApart();
    if (count > static_cast<utf8proc_ssize_t>(points.size())) {
        many.resize(static_cast<std::size_t>(count));
        points = many;
        count = takeApart();
    }
    if (count < 0) {
        folded += word;
        return;
    }
    points = points.first(static_cast<std::size_t>(count));
    const auto isGone = [](utf8proc_int32_t c) { return isAccent(static_cast<char32_t>(c)); };
    count = std::remove_if(points.begin(), points.end(), isGone) - points.begin();
    // What is left goes together again, Hangul and voiced Kana for two.
    count = utf8proc_normalize_utf32(points.data(), count, UTF8PROC_COMPOSE);
    for (const auto c : points.first(static_cast<std::size_t>(count)))
        appendPlain(folded, static_cast<char32_t>(c));
}

}  // namespace lorvale
