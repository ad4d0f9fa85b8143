#include <algorithm>
#include <array>

#include "base/richtext/RtfReader.h"

namespace lorvale {

namespace {

using Reader = RtfReader;

constexpr int kNothing = static_cast<int>(Reader::Destination::nothing);

template <class Enum>
constexpr int number(Enum value) {
    return static_cast<int>(value);
}

/// All control words that are obeyed.  A destination that is not here is read as text, unless "\*" says that
/// those who do not know it leave it out.
constexpr auto kWords = std::to_array<RtfWord>({
    {"ansicpg", &Reader::setCodePage, 0},
    {"atnauthor", &Reader::setDestination, kNothing},
    {"atnid", &Reader::setDestination, kNothing},
    {"b", &Reader::setFlag, number(Reader::Flag::bold)},
    {"bin", &Reader::skipBinary},
    {"blue", &Reader::setColorPart, 2},
    {"bullet", &Reader::addCharacter, 0x2022},
    {"cell", &Reader::endCell},
    {"cf", &Reader::setNumber, number(Reader::Number::color)},
    {"colortbl", &Reader::setDestination, number(Reader::Destination::colors)},
    {"cpg", &Reader::setFontCharset, 1},
    {"deff", &Reader::setNumber, number(Reader::Number::defaultFont)},
    {"deleted", &Reader::setFlag, number(Reader::Flag::hidden)},
    {"emdash", &Reader::addCharacter, 0x2014},
    {"emspace", &Reader::addCharacter, 0x2003},
    {"endash", &Reader::addCharacter, 0x2013},
    {"enspace", &Reader::addCharacter, 0x2002},
    {"f", &Reader::setNumber, number(Reader::Number::font)},
    {"fcharset", &Reader::setFontCharset, 0},
    {"fi", &Reader::setParagraphLength, number(Reader::Length::firstLine)},
    {"filetbl", &Reader::setDestination, kNothing},
    {"fldinst", &Reader::setDestination, number(Reader::Destination::instruction)},
    {"fmodern", &Reader::setFontPitch, 1},
    {"fonttbl", &Reader::setDestination, number(Reader::Destination::fonts)},
    {"footer", &Reader::setDestination, kNothing},
    {"footerf", &Reader::setDestination, kNothing},
    {"footerl", &Reader::setDestination, kNothing},
    {"footerr", &Reader::setDestination, kNothing},
    {"fprq", &Reader::setFontPitch, 0},
    {"fs", &Reader::setNumber, number(Reader::Number::size)},
    {"ftnsep", &Reader::setDestination, kNothing},
    {"ftnsepc", &Reader::setDestination, kNothing},
    {"green", &Reader::setColorPart, 1},
    {"header", &Reader::setDestination, kNothing},
    {"headerf", &Reader::setDestination, kNothing},
    {"headerl", &Reader::setDestination, kNothing},
    {"headerr", &Reader::setDestination, kNothing},
    {"i", &Reader::setFlag, number(Reader::Flag::italic)},
    {"info", &Reader::setDestination, kNothing},
    {"jpegblip", &Reader::setPictureKind, number(Reader::PictureKind::jpeg)},
    {"ldblquote", &Reader::addCharacter, 0x201C},
    {"li", &Reader::setParagraphLength, number(Reader::Length::left)},
    {"lin", &Reader::setParagraphLength, number(Reader::Length::left)},
    {"line", &Reader::addCharacter, '\n'},
    {"lquote", &Reader::addCharacter, 0x2018},
    {"ltrmark", &Reader::addCharacter, 0x200E},
    {"mac", &Reader::setCodePage, 10000},
    {"nestcell", &Reader::endCell},
    {"nestrow", &Reader::endRow},
    {"nesttableprops", &Reader::setDestination, number(Reader::Destination::body)},
    {"nonshppict", &Reader::setDestination, kNothing},
    {"objdata", &Reader::setDestination, kNothing},
    {"page", &Reader::addCharacter, '\f'},
    {"par", &Reader::addCharacter, '\n'},
    {"pard", &Reader::resetParagraph},
    {"pc", &Reader::setCodePage, 437},
    {"pca", &Reader::setCodePage, 850},
    {"pict", &Reader::setDestination, number(Reader::Destination::picture)},
    {"plain", &Reader::resetCharacters},
    {"pngblip", &Reader::setPictureKind, number(Reader::PictureKind::png)},
    {"pntxta", &Reader::setDestination, kNothing},
    {"pntxtb", &Reader::setDestination, kNothing},
    {"qc", &Reader::setAlignment, number(ParagraphStyle::Alignment::center)},
    {"qj", &Reader::setAlignment, number(ParagraphStyle::Alignment::justified)},
    {"ql", &Reader::setAlignment, number(ParagraphStyle::Alignment::left)},
    {"qmspace", &Reader::addCharacter, 0x2005},
    {"qr", &Reader::setAlignment, number(ParagraphStyle::Alignment::right)},
    {"rdblquote", &Reader::addCharacter, 0x201D},
    {"red", &Reader::setColorPart, 0},
    {"revtbl", &Reader::setDestination, kNothing},
    {"ri", &Reader::setParagraphLength, number(Reader::Length::right)},
    {"rin", &Reader::setParagraphLength, number(Reader::Length::right)},
    {"row", &Reader::endRow},
    {"rquote", &Reader::addCharacter, 0x2019},
    {"rtlmark", &Reader::addCharacter, 0x200F},
    {"rxe", &Reader::setDestination, kNothing},
    {"sect", &Reader::addCharacter, '\n'},
    {"shppict", &Reader::setDestination, number(Reader::Destination::body)},
    {"stylesheet", &Reader::setDestination, kNothing},
    {"tab", &Reader::addCharacter, '\t'},
    {"tc", &Reader::setDestination, kNothing},
    {"tqc", &Reader::setTabKind, number(TabStop::Kind::center)},
    {"tqdec", &Reader::setTabKind, number(TabStop::Kind::decimal)},
    {"tqr", &Reader::setTabKind, number(TabStop::Kind::right)},
    {"tx", &Reader::addTabStop},
    {"txe", &Reader::setDestination, kNothing},
    {"u", &Reader::addUnicode},
    {"uc", &Reader::setNumber, number(Reader::Number::bytesForUnicode)},
    {"ul", &Reader::setFlag, number(Reader::Flag::underline)},
    {"uld", &Reader::setFlag, number(Reader::Flag::underline)},
    {"uldash", &Reader::setFlag, number(Reader::Flag::underline)},
    {"uldb", &Reader::setFlag, number(Reader::Flag::underline)},
    {"ulnone", &Reader::endUnderline},
    {"ulth", &Reader::setFlag, number(Reader::Flag::underline)},
    {"ulw", &Reader::setFlag, number(Reader::Flag::underline)},
    {"ulwave", &Reader::setFlag, number(Reader::Flag::underline)},
    {"v", &Reader::setFlag, number(Reader::Flag::hidden)},
    {"xe", &Reader::setDestination, kNothing},
    {"zwbo", &Reader::addCharacter, 0x200B},
    {"zwj", &Reader::addCharacter, 0x200D},
    {"zwnbo", &Reader::addCharacter, 0x2060},
    {"zwnj", &Reader::addCharacter, 0x200C},
});
static_assert(std::ranges::is_sorted(kWords, {}, &RtfWord::name), "found by binary search");

}  // namespace

const RtfWord* rtfWordNamed(std::string_view name) {
    const auto* const found = std::ranges::lower_bound(kWords, name, {}, &RtfWord::name);
    return found != kWords.end() && found->name == name ? found : nullptr;
}

}  // namespace lorvale
