#include "base/richtext/RtfReader.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "base/richtext/RtfCodePages.h"
#include "base/text/Ascii.h"
#include "base/text/NamedCharset.h"

namespace lorvale {

namespace {

constexpr std::size_t kMostGroups = 1000;  // in each other; documents have tens
constexpr std::size_t kMostColors = 4096;
constexpr std::size_t kLongestFamily = 128;
constexpr std::size_t kLongestInstruction = 8192, kLongestName = 1024;  // of a field, of an attachment

constexpr auto kLiteral = byteTable(
    [](std::uint8_t c) { return c != '\\' && c != '{' && c != '}' && c != '\r' && c != '\n' && c != '\0'; });

constexpr bool isLiteral(char c) {
    return kLiteral[static_cast<std::uint8_t>(c)];
}

/// The number behind a control word; one that is too large becomes the nearest that fits.
RtfReader::Parameter takeParameter(Cursor& in) {
    const bool negative = in.peek() == '-' && isAsciiDigit(in.peek(1));
    if (negative) in.advance();
    const auto digits = in.takeWhile(isAsciiDigit);
    if (digits.empty()) return std::nullopt;
    int value = 0;
    const auto error = std::from_chars(digits.data(), digits.data() + digits.size(), value).ec;
    if (error != std::errc()) value = std::numeric_limits<int>::max();
    return negative ? -value : value;
}

/// A text that would grow longer is left as it is.
void appendUpTo(std::size_t most, std::string& text, std::string_view more) {
    if (text.size() + more.size() <= most) text += more;
}

/// The address in the instruction of a field, `HYPERLINK "address"`; empty for another one.
std::string linkInInstruction(std::string_view instruction) {
    Cursor in(trimmed(instruction));
    if (!in.skipIgnoringCase("HYPERLINK")) return {};
    in.takeWhile(isAsciiWhite);
    if (!in.skip('"')) return std::string(in.takeUntil(isAsciiWhite));
    std::string address;
    while (!in.atEnd() && in.peek() != '"') {
        in.skip('\\');
        address += in.take(1);
    }
    return address;
}

}  // namespace

RtfReader::RtfReader(std::string_view rtf, const AttachmentSource& attachments)
    : _in(rtf), _attachments(attachments) {}

bool RtfReader::isRtf(std::string_view bytes) {
    return trimmed(bytes.substr(0, 100)).starts_with("{\\rtf");
}

AttributedText RtfReader::read() {
    _in.takeUntil('{');
    while (!_in.atEnd()) {
        switch (const char c = _in.peek()) {
            case '{':
                openGroup();
                break;
            case '}':
                closeGroup();
                break;
            case '\\':
                readControl();
                break;
            default:
                if (isLiteral(c)) {
                    addLiteral(_in.takeWhile(isLiteral));
                } else {
                    _in.advance();
                }
        }
    }
    flush();
    return _out.take();
}

bool RtfReader::isNothing() const {
    return _state.destination == Destination::nothing || _hiddenFrom > 0;
}

void RtfReader::openGroup() {
    _in.advance();
    _toSkip = 0;
    _starred = false;
    if (_outer.size() < kMostGroups) {
        _outer.push_back(_state);
    } else {
        ++_deeper;
    }
}

void RtfReader::closeGroup() {
    _in.advance();
    _toSkip = 0;
    _starred = false;
    flush();
    if (_deeper > 0) {
        if (_hiddenFrom == _deeper) _hiddenFrom = 0;
        --_deeper;
        return;
    }
    const auto destination = _state.destination;
    _state = std::move(_outer.back());
    _outer.pop_back();
    _attributesChanged = true;
    if (_state.destination != destination) leave(destination);
    if (_outer.empty()) _in.takeRest();  // what follows the document is none of it
}

void RtfReader::leave(Destination destination) {
    switch (destination) {
        case Destination::fonts:
            _fontBeingRead = nullptr;
            break;
        case Destination::instruction:
            return finishInstruction();
        case Destination::graphic:
            return finishGraphic();
        case Destination::picture:
            return finishPicture();
        case Destination::body:
        case Destination::colors:
        case Destination::nothing:
            break;
    }
}

void RtfReader::readControl() {
    _in.advance();
    if (isAsciiLetter(_in.peek())) return readControlWord();
    if (_in.skip('\'')) return addEscapedByte();
    if (!_in.atEnd()) readSymbol(_in.take(1).front());
}

void RtfReader::readControlWord() {
    const auto word = _in.takeWhile(isAsciiLetter);
    const auto parameter = takeParameter(_in);
    _in.skip(' ');
    act(word, parameter);
}

void RtfReader::act(std::string_view word, Parameter parameter) {
    flush();
    const bool starred = std::exchange(_starred, false);
    if (const auto* const known = rtfWordNamed(word)) {
        // One that stands for a character may be the other form of the character before it.
        if (_toSkip > 0 && known->act == &RtfReader::addCharacter) {
            --_toSkip;
            return;
        }
        _toSkip = 0;
        return (this->*known->act)(known->value, parameter);
    }
    // The names that programs give to this word begin differently.
    if (word.ends_with("Graphic")) return setDestination(static_cast<int>(Destination::graphic), parameter);
    if (starred) setDestination(static_cast<int>(Destination::nothing), parameter);
}

void RtfReader::readSymbol(char symbol) {
    if (std::string_view("~-_").find(symbol) != std::string_view::npos && _toSkip > 0) {
        --_toSkip;
        return;
    }
    switch (symbol) {
        case '\\':
        case '{':
        case '}':
            return addBytes({&symbol, 1});
        case '*':
            _starred = true;
            return;
        case '~':
            return addCharacter(0xA0, {});
        case '-':
            return addCharacter(0xAD, {});
        case '_':
            return addCharacter(0x2011, {});
        case '\t':
        case '\r':
        case '\n':
            return addCharacter(symbol == '\t' ? '\t' : '\n', {});
        default:
            return;
    }
}

// Text
// ---------------------------------------------------------------------------------------------------------

/// Bytes that stand in the document as they are.
void RtfReader::addLiteral(std::string_view bytes) {
    if (_toSkip > 0) {
        const auto skipped = std::min(bytes.size(), static_cast<std::size_t>(_toSkip));
        bytes.remove_prefix(skipped);
        _toSkip -= static_cast<int>(skipped);
    }
    if (bytes.empty() || isNothing()) return;
    switch (_state.destination) {
        case Destination::colors:
            return finishColors(static_cast<std::size_t>(std::ranges::count(bytes, ';')));
        case Destination::picture:
            return addPictureDigits(bytes);
        case Destination::fonts:
            return addFontNames(bytes);
        case Destination::graphic:
            return addAttachmentName(bytes);
        default:
            return addBytes(bytes);
    }
}

/// A byte written as two hexadecimal digits.
void RtfReader::addEscapedByte() {
    const int high = hexDigitValue(_in.peek()), low = hexDigitValue(_in.peek(1));
    if (high < 0 || low < 0) return;
    _in.advance(2);
    const char byte = static_cast<char>(high << 4 | low);
    addBytes({&byte, 1});
}

/// The names of fonts, each ended by a semicolon.
void RtfReader::addFontNames(std::string_view bytes) {
    Cursor names(bytes);
    while (!names.atEnd()) {
        addBytes(names.takeUntil(';'));
        if (!names.skip(';')) continue;
        flush();
        _fontBeingRead = nullptr;
    }
}

/// Blanks at the end of a name are none of it, unless they are escaped.
void RtfReader::addAttachmentName(std::string_view bytes) {
    flush();
    const auto name = bytes.substr(0, bytes.find_last_not_of(kAsciiWhite) + 1);
    addBytes(name);
    flush();
    appendUpTo(kLongestName, _blanksInName, bytes.substr(name.size()));
}

void RtfReader::addPictureDigits(std::string_view digits) {
    for (const char c : digits) {
        const int digit = hexDigitValue(c);
        if (digit < 0) continue;
        if (_highDigit >= 0) _pictureBytes += static_cast<char>(_highDigit << 4 | digit);
        _highDigit = _highDigit >= 0 ? -1 : digit;
    }
}

/// Bytes of text, which are decoded together: a character may take two of them.
void RtfReader::addBytes(std::string_view bytes) {
    if (_toSkip > 0 && !bytes.empty()) {  // escaped ones; they come one by one
        --_toSkip;
        return;
    }
    if (!isNothing()) _bytes += bytes;
}

void RtfReader::flush() {
    if (_bytes.empty()) return;
    if (isAscii(_bytes)) {
        deliver(_bytes);
    } else {
        deliver(textInCodePage(_bytes, codePage()));
    }
    _bytes.clear();
}

void RtfReader::deliver(std::string_view utf8) {
    if (std::exchange(_highSurrogate, 0) != 0) deliver("\uFFFD");
    if (isNothing()) return;
    switch (_state.destination) {
        case Destination::body:
            return deliverToBody(utf8);
        case Destination::fonts:
            if (_fontBeingRead != nullptr) appendUpTo(kLongestFamily, _fontBeingRead->family, utf8);
            return;
        case Destination::instruction:
            _instruction += utf8.substr(0, kLongestInstruction - _instruction.size());
            return;
        case Destination::graphic:
            if (!_graphicName.empty()) appendUpTo(kLongestName, _graphicName, _blanksInName);
            _blanksInName.clear();
            return appendUpTo(kLongestName, _graphicName, utf8);
        case Destination::colors:
        case Destination::picture:
        case Destination::nothing:
            return;
    }
}

void RtfReader::deliverToBody(std::string_view utf8) {
    if (_state.hidden || utf8.empty()) return;
    // Behind an attachment stands the one character that other programs show for it.
    if (std::exchange(_dropMark, false) && static_cast<std::uint8_t>(utf8.front()) >= 0x80)
        utf8.remove_prefix(byteOffset(utf8, 1));
    if (utf8.empty()) return;
    beginBodyText();
    _out.append(utf8);
}

void RtfReader::beginBodyText() {
    tellAttributes();
    for (; _cellsEnded > 0; --_cellsEnded) _out.append('\t');
}

void RtfReader::deliverCharacter(char32_t character) {
    flush();
    std::string utf8;
    appendUtf8(utf8, isBadByte(character) ? 0xFFFD : character);
    deliver(utf8);
}

void RtfReader::addCharacter(int value, Parameter) {
    deliverCharacter(static_cast<char32_t>(value));
}

void RtfReader::addUnicode(int, Parameter parameter) {
    if (!parameter) return;
    // A signed number of 16 bits, by which some mean an unsigned one.
    const auto unit = static_cast<char32_t>(*parameter < 0 ? *parameter + 0x10000 : *parameter);
    _toSkip = _state.bytesForUnicode;
    if (unit >= 0xD800 && unit <= 0xDBFF) {
        if (_highSurrogate != 0) deliver("");
        _highSurrogate = unit;
    } else if (unit >= 0xDC00 && unit <= 0xDFFF && _highSurrogate != 0) {
        const auto high = std::exchange(_highSurrogate, 0);
        deliverCharacter(0x10000 + ((high - 0xD800) << 10) + (unit - 0xDC00));
    } else {
        deliverCharacter(unit);
    }
}

void RtfReader::endCell(int, Parameter) {
    if (_state.destination == Destination::body && !isNothing()) ++_cellsEnded;
}

void RtfReader::endRow(int, Parameter) {
    _cellsEnded = 0;  // no tab behind the last one
    deliver("\n");
}

// Attributes
// ---------------------------------------------------------------------------------------------------

void RtfReader::setDestination(int value, Parameter) {
    if (isNothing()) return;
    if (_deeper > 0) {
        _hiddenFrom = _deeper;
        return;
    }
    _state.destination = static_cast<Destination>(value);
    switch (_state.destination) {
        case Destination::instruction:
            _instruction.clear();
            break;
        case Destination::graphic:
            _graphicName.clear();
            _blanksInName.clear();
            break;
        case Destination::picture:
            _pictureBytes.clear();
            _pictureKind = PictureKind::none;
            _highDigit = -1;
            break;
        default:
            break;
    }
}

void RtfReader::setCodePage(int value, Parameter parameter) {
    const int page = value != 0 ? value : parameter.value_or(0);
    if (page > 0) _documentCodePage = page;
}

/// `value` is 1 for a code page, 0 for the number of a character set that stands for one.
void RtfReader::setFontCharset(int value, Parameter parameter) {
    if (_fontBeingRead == nullptr) return;
    const int n = parameter.value_or(0);
    _fontBeingRead->codePage = value == 1 ? n : codePageOfRtfCharset(n);
}

/// `value` is 1 for the family of typewriters, 0 for the pitch itself, which has the last word.
void RtfReader::setFontPitch(int value, Parameter parameter) {
    if (_fontBeingRead == nullptr) return;
    if (value == 1 || parameter == 1) _fontBeingRead->fixedPitch = true;
    if (value == 0 && parameter == 2) _fontBeingRead->fixedPitch = false;
}

void RtfReader::setColorPart(int value, Parameter parameter) {
    if (_state.destination != Destination::colors) return;
    auto& color = _colorBeingRead ? *_colorBeingRead : _colorBeingRead.emplace();
    const auto part = std::clamp(parameter.value_or(0), 0, 255) / 255.0;
    (value == 0 ? color.red : value == 1 ? color.green : color.blue) = part;
}

void RtfReader::finishColors(std::size_t count) {
    for (; count > 0 && _colors.size() < kMostColors; --count)
        _colors.push_back(std::exchange(_colorBeingRead, std::nullopt));
}

/// The field's text, which follows in the group around, leads to what its instruction says.
void RtfReader::finishInstruction() {
    if (_instruction.size() == kLongestInstruction) return;  // half an address leads nowhere
    const auto link = linkInInstruction(_instruction);
    if (!link.empty() && link.size() <= kLongestLink) _state.link = std::make_shared<const std::string>(link);
}

void RtfReader::finishGraphic() {
    auto attachment = _attachments ? _attachments(_graphicName) : nullptr;
    if (attachment == nullptr) {
        deliver("<" + _graphicName + ">");
    } else {
        showAttachment(std::move(attachment));
    }
    _dropMark = true;
}

void RtfReader::setPictureKind(int value, Parameter) {
    _pictureKind = static_cast<PictureKind>(value);
}

void RtfReader::skipBinary(int, Parameter parameter) {
    const auto bytes = _in.take(static_cast<std::size_t>(std::max(parameter.value_or(0), 0)));
    if (_state.destination == Destination::picture && !isNothing()) _pictureBytes += bytes;
}

void RtfReader::finishPicture() {
    auto bytes = std::exchange(_pictureBytes, {});
    if (_pictureKind == PictureKind::none || bytes.empty() || isNothing()) return;
    const auto picture = FileWrapper::regularFile(Data(std::move(bytes)));
    const auto name = "picture-" + std::to_string(++_pictures);
    const bool isNamed =
        picture->setPreferredFilename(name + (_pictureKind == PictureKind::png ? ".png" : ".jpg"));
    if (isNamed) showAttachment(picture);
}

void RtfReader::showAttachment(std::shared_ptr<const FileWrapper> attachment) {
    if (isNothing() || _state.destination != Destination::body || _state.hidden) return;
    beginBodyText();
    _out.appendAttachment(std::move(attachment));
}

AttributedText attributedTextFromRTF(const Data& rtf) {
    if (!RtfReader::isRtf(rtf.view()))
        return AttributedText(decodeUnlabelled(rtf.view(), StringEncoding::unknown));
    return RtfReader(rtf.view(), nullptr).read();
}

}  // namespace lorvale
