#include "mail/mime/EnrichedWriter.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>

#include "base/text/Cursor.h"
#include "lorvale/platform/user_defaults.h"
#include "lorvale/values/format.h"

namespace lorvale {

struct MimeEnrichedWriter::Style {
    std::string_view name;
    bool State::*isOn;
};
const MimeEnrichedWriter::Style MimeEnrichedWriter::kStyles[4] = {{"bold", &State::bold},
                                                                  {"italic", &State::italic},
                                                                  {"underline", &State::underline},
                                                                  {"fixed", &State::fixed}};

namespace {

constexpr int kSizeStep = 4;  // half points that "bigger" adds
constexpr std::string_view kJustifications[] = {"", "flushleft", "center", "flushright"};

std::atomic<bool> rtfIsWritten{false};
std::atomic<double> chosenFontSize{0};

int halfPoints(double points) {
    return points > 0 ? static_cast<int>(std::lround(std::min(points, 1e6) * 2)) : 0;
}

/// Readers divide by 65,536.  Classic letters have always had one less than what they then read, so that
/// colours fade a little each time they are written.
std::string hexadecimal(double part, MailDialect dialect) {
    char digits[16];
    const double scale = dialect == MailDialect::classic ? 65535.0 : 65536.0;
    const auto value = static_cast<unsigned>(part > 0 ? std::min(part * scale, 65535.0) : 0);
    const auto end = std::to_chars(std::begin(digits), std::end(digits), value, 16).ptr;
    std::string text(digits, end);
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
    return std::string(4 - std::min<std::size_t>(text.size(), 4), '0') + text;
}

std::string written(const TabStop& stop) {
    char digits[32];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), stop.location).ptr;
    return std::string(digits, end) + "LRCD"[static_cast<int>(stop.kind)];
}

}  // namespace

bool MimeEnrichedWriter::writeRtfEnriched() {
    return rtfIsWritten;
}
void MimeEnrichedWriter::setWriteRtfEnriched(bool write) {
    rtfIsWritten = write;
}

double MimeEnrichedWriter::defaultFontSize() {
    const double chosen = chosenFontSize;
    if (chosen > 0) return chosen;
    const auto size = Font::user().size;
    return size > 0 ? size : 12.0;
}
void MimeEnrichedWriter::setDefaultFontSize(double points) {
    chosenFontSize = points;
}

void MimeEnrichedWriter::convertAttributedString(const AttributedText& text, std::string& toEnrichedString) {
    _output = &toEnrichedString;
    _baseFontSize = halfPoints(defaultFontSize());
    _fontSizeChanges = 0;
    _wanted = State{.parameters = std::move(_wanted.parameters)};
    writeRtf("{");
    for (const auto& run : text.runs()) writeRun(run);
    writeRtf("}");
    endRtfParam();
    // Classic text ends with its commands open, as the programs that read it have always had it.  RFC 1896
    // wants each of them closed.
    while (_dialect == MailDialect::standard && !_stack.empty()) popTop();
}

void MimeEnrichedWriter::writeRun(const AttributedText::Run& run) {
    const auto& attributes = run.attributes;
    wantColor(attributes.foregroundColor);
    _wanted.underline = attributes.underline.value_or(0) >= 1;
    wantFont(attributes.font);
    wantParagraph(attributes.paragraphStyle);
    wantTabStops(attributes.paragraphStyle);
    effectuateState();
    if (attributes.attachment == nullptr) return writeText(run.text, false);
    for (std::size_t i = 0; i < run.range.length; ++i) writeAttachment(*attributes.attachment);
}

// What is wanted
// -----------------------------------------------------------------------------------------------

void MimeEnrichedWriter::wantParameter(std::string_view name, std::optional<std::string> parameter) {
    if (parameter) {
        _wanted.parameters.insert_or_assign(std::string(name), *std::move(parameter));
    } else if (const auto found = _wanted.parameters.find(name); found != _wanted.parameters.end()) {
        _wanted.parameters.erase(found);
    }
}

void MimeEnrichedWriter::wantColor(const std::optional<Color>& color) {
    if (!color) return wantParameter("color", std::nullopt);
    const auto digits = [this](double part) { return hexadecimal(part, _dialect); };
    wantParameter("color", digits(color->red) + "," + digits(color->green) + "," + digits(color->blue));
}

/// A text without a font has the user's, which needs no command.
void MimeEnrichedWriter::wantFont(const std::optional<Font>& font) {
    _wanted.bold = font && font->bold;
    _wanted.italic = font && font->italic;
    _wanted.fixed = font && font->fixedPitch;
    wantFamily(font ? font->family : std::string());
    if (!font) {
        _wanted.fontSize = 0;
        return;
    }
    const double more = font->family == "Brunt" ? 2 : 0;  // the reader takes them off
    _wanted.fontSize = halfPoints(font->size + more) - _baseFontSize;
}

void MimeEnrichedWriter::wantFamily(std::string_view family) {
    const bool isUsers =
        family == Font::user().family || (_wanted.fixed && family == Font::userFixedPitch().family);
    const auto present = _wanted.parameters.find("fontfamily");
    const auto before = present == _wanted.parameters.end() ? std::string() : present->second;
    // What readers take for the end of a parameter has no escape in there.  Classic letters double it all the
    // same.
    const bool isReadable =
        _dialect == MailDialect::classic || family.find_first_of("<>") == std::string_view::npos;
    const auto name = isUsers || !isReadable ? std::string() : std::string(family);
    if (name == before) return;
    if (_written.parameters.contains("fontfamily")) popCommand("fontfamily");
    wantParameter("fontfamily", name.empty() ? std::nullopt : std::optional(name));
}

void MimeEnrichedWriter::wantParagraph(const std::optional<ParagraphStyle>& style) {
    if (!style) {
        if (_wanted.justification != 0) _wanted.justification = 1;
        return;
    }
    switch (style->alignment) {
        case ParagraphStyle::Alignment::left:
        case ParagraphStyle::Alignment::justified:  // there is no command for it here
            _wanted.justification = 1;
            break;
        case ParagraphStyle::Alignment::center:
            _wanted.justification = 2;
            break;
        case ParagraphStyle::Alignment::right:
            _wanted.justification = 3;
            break;
    }
}

void MimeEnrichedWriter::wantTabStops(const std::optional<ParagraphStyle>& style) {
    if (!UserDefaults::standard().boolForKey("ShouldSendRulerInformation")) return;
    std::string stops;
    for (const auto& stop : style ? style->tabStops : std::vector<TabStop>())
        stops += (stops.empty() ? "" : ";") + written(stop);
    wantParameter("x-tabstops", stops.empty() ? std::nullopt : std::optional(stops));
}

// Output
// -------------------------------------------------------------------------------------------------------

void MimeEnrichedWriter::beginRtfParam() {
    if (!std::exchange(_isParam, true)) _output->append("<rtf><param>");
}

void MimeEnrichedWriter::endRtfParam() {
    if (!std::exchange(_isParam, false)) return;
    _output->append("</param></rtf>");
    _lastWasNewline = false;
}

void MimeEnrichedWriter::writeRtf(std::string_view word) {
    if (!writeRtfEnriched()) return;
    beginRtfParam();
    if (word != "{" && word != "}") *_output += '\\';
    _output->append(word);
}

void MimeEnrichedWriter::writeCommand(std::string_view name, bool begin) {
    endRtfParam();
    _output->append(begin ? "<" : "</").append(name).append(">");
    _lastWasNewline = false;
}

/// A single line end is a blank to the reader, so that n of them need n + 1.
void MimeEnrichedWriter::writeNewline() {
    endRtfParam();
    if (!_lastWasNewline) *_output += '\n';
    *_output += '\n';
    _lastWasNewline = true;
}

void MimeEnrichedWriter::writeText(std::string_view text, bool isRtf) {
    Cursor in(text);
    while (!in.atEnd()) {
        if (in.skip('\n')) {
            if (!isRtf) {
                writeNewline();
            } else if (!std::exchange(_lastWasNewline, true)) {
                *_output += '\n';
            }
            continue;
        }
        _output->append(in.skip('<') ? "<<" : in.takeUntil([](char c) { return c == '<' || c == '\n'; }));
        _lastWasNewline = false;
    }
}

void MimeEnrichedWriter::writeAttachment(const FileWrapper& attachment) {
    effectuateStateAroundAttachment(false);
    writeCommand("attachment", true);
    writeText(attachment.preferredFilename(), true);
    writeCommand("attachment", false);
    effectuateStateAroundAttachment(true);
}

// Commands
// -----------------------------------------------------------------------------------------------------

/// Records what a command without a parameter changes when it opens, or takes that back.
void MimeEnrichedWriter::noteCommand(std::string_view name, bool open) {
    const auto* const style = std::ranges::find(kStyles, name, &Style::name);
    if (style != std::end(kStyles)) {
        _written.*style->isOn = open;
    } else if (name == "bigger" || name == "smaller") {
        const int direction = (name == "bigger") == open ? 1 : -1;
        _written.fontSize += direction * kSizeStep;
        _fontSizeChanges += direction;
    } else {
        const auto* const found = std::ranges::find(kJustifications, name);
        _written.justification = open ? static_cast<int>(found - kJustifications) : 0;
    }
}

void MimeEnrichedWriter::pushCommand(std::string_view name) {
    writeCommand(name, true);
    _stack.push_back({std::string(name), false, {}});
    noteCommand(name, true);
}

void MimeEnrichedWriter::pushCommand(std::string_view name, const std::string& parameter) {
    const auto present = _written.parameters.find(name);
    Open open{std::string(name), true, {}};
    if (present != _written.parameters.end()) open.outer = present->second;
    writeCommand(name, true);
    _stack.push_back(std::move(open));
    writeCommand("param", true);
    writeText(parameter, true);
    writeCommand("param", false);
    _written.parameters.insert_or_assign(std::string(name), parameter);
}

void MimeEnrichedWriter::popTop() {
    const auto top = std::move(_stack.back());
    _stack.pop_back();
    writeCommand(top.name, false);
    if (!top.hasParameter) {
        noteCommand(top.name, false);
    } else if (top.outer) {
        _written.parameters[top.name] = *top.outer;
    } else {
        _written.parameters.erase(top.name);
    }
}

/// Closes what was opened since, too: effectuateState() opens it again.  All, where the command is not open.
void MimeEnrichedWriter::popCommand(std::string_view name) {
    while (!_stack.empty()) {
        const bool isIt = _stack.back().name == name;
        popTop();
        if (isIt) return;
    }
}

bool MimeEnrichedWriter::effectuateStyles() {
    bool changed = false;
    for (const auto& [name, isOn] : kStyles) {
        if (_wanted.*isOn == _written.*isOn) continue;
        _wanted.*isOn ? pushCommand(name) : popCommand(name);
        changed = true;
    }
    return changed;
}

/// Less than a whole step has no effect, and counts as written.
bool MimeEnrichedWriter::effectuateSize() {
    const int steps = (_wanted.fontSize - _written.fontSize) / kSizeStep;
    for (int i = 0; i < std::abs(steps); ++i) {
        if (steps < 0) {
            _fontSizeChanges > 0 ? popCommand("bigger") : pushCommand("smaller");
        } else {
            _fontSizeChanges < 0 ? popCommand("smaller") : pushCommand("bigger");
        }
    }
    _written.fontSize = _wanted.fontSize;
    return steps != 0;
}

bool MimeEnrichedWriter::effectuateJustification() {
    if (_wanted.justification == _written.justification) return false;
    if (_written.justification != 0) popCommand(kJustifications[_written.justification]);
    if (_wanted.justification != 0) pushCommand(kJustifications[_wanted.justification]);
    return true;
}

bool MimeEnrichedWriter::effectuateParameters() {
    bool changed = false;
    for (const auto& [name, parameter] : _wanted.parameters) {
        const auto present = _written.parameters.find(name);
        if (present != _written.parameters.end() && present->second == parameter) continue;
        pushCommand(name, parameter);
        changed = true;
    }
    for (const auto* const name : {"color", "fontfamily", "x-tabstops"}) {
        if (!_written.parameters.contains(name) || _wanted.parameters.contains(name)) continue;
        popCommand(name);
        changed = true;
    }
    return changed;
}

/// Until nothing is left to change, since closing a command may have closed others.
void MimeEnrichedWriter::effectuateState() {
    endRtfParam();
    for (bool changed = true; changed;) {
        changed = effectuateStyles();
        changed = effectuateSize() || changed;
        changed = effectuateJustification() || changed;
        changed = effectuateParameters() || changed;
    }
}

void MimeEnrichedWriter::effectuateStateAroundAttachment(bool begin) {
    for (const auto& [name, isOn] : kStyles)
        if (_written.*isOn) writeCommand(name, begin);
    for (int i = 0; i < std::abs(_fontSizeChanges); ++i)
        writeCommand(_fontSizeChanges > 0 ? "bigger" : "smaller", begin);
    if (_written.justification != 0) writeCommand(kJustifications[_written.justification], begin);
}

std::string enrichedString(const AttributedText& text, MailDialect dialect) {
    std::string enriched;
    MimeEnrichedWriter(dialect).convertAttributedString(text, enriched);
    return enriched;
}

}  // namespace lorvale
