#include "lorvale/values/attributed_text.h"

#include <algorithm>
#include <iterator>

#include "lorvale/platform/exception.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace lorvale {

bool TextAttributes::has(TextAttribute attribute) const {
    switch (attribute) {
        case TextAttribute::font:
            return font.has_value();
        case TextAttribute::foregroundColor:
            return foregroundColor.has_value();
        case TextAttribute::underline:
            return underline.has_value();
        case TextAttribute::paragraphStyle:
            return paragraphStyle.has_value();
        case TextAttribute::link:
            return link.has_value();
        case TextAttribute::attachment:
            return attachment != nullptr;
    }
    return false;
}

void TextAttributes::remove(TextAttribute attribute) {
    switch (attribute) {
        case TextAttribute::font:
            return font.reset();
        case TextAttribute::foregroundColor:
            return foregroundColor.reset();
        case TextAttribute::underline:
            return underline.reset();
        case TextAttribute::paragraphStyle:
            return paragraphStyle.reset();
        case TextAttribute::link:
            return link.reset();
        case TextAttribute::attachment:
            return attachment.reset();
    }
}

void TextAttributes::add(const TextAttributes& others) {
    if (others.font) font = others.font;
    if (others.foregroundColor) foregroundColor = others.foregroundColor;
    if (others.underline) underline = others.underline;
    if (others.paragraphStyle) paragraphStyle = others.paragraphStyle;
    if (others.link) link = others.link;
    if (others.attachment != nullptr) attachment = others.attachment;
}

AttributedText::AttributedText(std::string_view text, const TextAttributes& attributes) {
    append(text, attributes);
}

AttributedText::AttributedText(std::shared_ptr<const FileWrapper> attachment) {
    TextAttributes attributes;
    attributes.attachment = std::move(attachment);
    append(kAttachmentCharacter, attributes);
}

AttributedText& AttributedText::operator=(AttributedText&& other) noexcept {
    AttributedText taken(std::move(other));
    swap(taken);
    return *this;
}

void AttributedText::swap(AttributedText& other) noexcept {
    _text.swap(other._text);
    std::swap(_length, other._length);
    _landmarks.swap(other._landmarks);
    _runs.swap(other._runs);
}

// Looking ----------------------------------------------------------------------------------------------------

Range AttributedText::clipped(Range range) const {
    const auto location = std::min(range.location, _length);
    return {location, std::min(range.length, _length - location)};
}

namespace {

constexpr std::size_t kCharactersPerLandmark = 256;

}  // namespace

/// Where a character begins; the end of the text for its length.
std::size_t AttributedText::byteAt(std::size_t index) const {
    if (index >= _length) return _text.size();
    const auto landmark = _landmarks[index / kCharactersPerLandmark];
    return landmark + byteOffset(std::string_view(_text).substr(landmark), index % kCharactersPerLandmark);
}

/// `range` lies in the text.
std::string_view AttributedText::textIn(Range range) const {
    const auto start = byteAt(range.location);
    return std::string_view(_text).substr(start, byteAt(range.end()) - start);
}

/// `index` is below the length.
AttributedText::Runs::const_iterator AttributedText::runHolding(std::size_t index) const {
    return std::prev(_runs.upper_bound(index));
}

AttributedText::Run AttributedText::runAt(Runs::const_iterator run) const {
    const auto next = std::next(run);
    const auto end = next == _runs.end() ? _length : next->first;
    const auto endByte = next == _runs.end() ? _text.size() : next->second.byte;
    const auto text = std::string_view(_text).substr(run->second.byte, endByte - run->second.byte);
    return {{run->first, end - run->first}, text, run->second.attributes};
}

std::vector<AttributedText::Run> AttributedText::runs() const {
    std::vector<Run> all;
    all.reserve(_runs.size());
    for (auto run = _runs.begin(); run != _runs.end(); ++run) all.push_back(runAt(run));
    return all;
}

AttributedText::Run AttributedText::runAtIndex(std::size_t index) const {
    if (index >= _length)
        throw RangeException(formatText("%@ %s: Out of bounds", "AttributedText", "runAtIndex:"));
    return runAt(runHolding(index));
}

std::optional<AttributedText::Run> AttributedText::nextAttribute(TextAttribute attribute,
                                                                 std::size_t fromLocation) const {
    if (fromLocation >= _length) return std::nullopt;
    for (auto start = runHolding(fromLocation); start != _runs.end(); ++start) {
        if (!start->second.attributes.has(attribute)) continue;
        auto run = runAt(start);
        if (const auto before = std::max(fromLocation, run.range.location) - run.range.location; before > 0) {
            run.range = {fromLocation, run.range.length - before};
            run.text = textIn(run.range);
        }
        return std::optional<Run>(run);
    }
    return std::nullopt;
}

AttributedText AttributedText::attributedSubstring(Range range) const {
    AttributedText part;
    range = clipped(range);
    if (range.length == 0) return part;
    for (auto start = runHolding(range.location); start != _runs.end() && start->first < range.end(); ++start) {
        const auto run = runAt(start);
        const auto first = std::max(range.location, run.range.location);
        const auto last = std::min(range.end(), run.range.end());
        part.append(textIn({first, last - first}), run.attributes);
    }
    return part;
}

// Changing ---------------------------------------------------------------------------------------------------

namespace {

/// Pieces of text are put together, so a bad byte must not become half of a character.
std::string withBadBytesAsLatin1(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        const auto c = nextCodePoint(text);
        appendUtf8(valid, isBadByte(c) ? c - kBadByte : c);
    }
    return valid;
}

}  // namespace

void AttributedText::append(std::string_view text, const TextAttributes& attributes) {
    if (text.empty()) return;
    if (!isValidUtf8(text)) return append(withBadBytesAsLatin1(text), attributes);
    if (_runs.empty() || std::prev(_runs.end())->second.attributes != attributes)
        _runs.emplace_hint(_runs.end(), _length, RunStart{_text.size(), attributes});
    appendText(text);
}

void AttributedText::appendText(std::string_view text) {
    const auto start = _text.size();
    _text += text;
    for (auto left = std::string_view(_text).substr(start); !left.empty();) {
        if (_length % kCharactersPerLandmark == 0) _landmarks.push_back(_text.size() - left.size());
        const auto piece = substring(left, {0, kCharactersPerLandmark - _length % kCharactersPerLandmark});
        _length += characterCount(piece);
        left.remove_prefix(piece.size());
    }
}

void AttributedText::append(const AttributedText& text) {
    if (&text == this) return append(AttributedText(text));
    for (const auto& run : text.runs()) append(run.text, run.attributes);
}

void AttributedText::replaceCharacters(Range range, const AttributedText& text) {
    range = clipped(range);
    auto result = attributedSubstring({0, range.location});
    result.append(text);
    result.append(attributedSubstring({range.end(), _length}));
    *this = std::move(result);
}

/// The run that begins at the index, after making one there; the end at the end of the text.
AttributedText::Runs::iterator AttributedText::splitAt(std::size_t index) {
    const auto next = _runs.lower_bound(index);
    if (index >= _length || (next != _runs.end() && next->first == index)) return next;
    return _runs.emplace_hint(next, index, RunStart{byteAt(index), std::prev(next)->second.attributes});
}

void AttributedText::changeAttributes(Range range, const std::function<void(TextAttributes&)>& change) {
    range = clipped(range);
    if (range.length == 0) return;
    auto run = splitAt(range.location);
    const auto end = splitAt(range.end());
    for (auto changed = run; changed != end; ++changed) change(changed->second.attributes);
    if (run == _runs.begin()) ++run;
    // The run behind the range may have become like the last one in it, so it is looked at too.
    const auto last = end == _runs.end() ? end : std::next(end);
    while (run != last)
        run = run->second.attributes == std::prev(run)->second.attributes ? _runs.erase(run) : std::next(run);
}

void AttributedText::setAttributes(Range range, const TextAttributes& attributes) {
    changeAttributes(range, [&](TextAttributes& present) { present = attributes; });
}

void AttributedText::addAttributes(Range range, const TextAttributes& attributes) {
    changeAttributes(range, [&](TextAttributes& present) { present.add(attributes); });
}

void AttributedText::removeAttribute(Range range, TextAttribute attribute) {
    changeAttributes(range, [&](TextAttributes& present) { present.remove(attribute); });
}

void AttributedText::fixAttributes() {
    fixParagraphStyles();
    fixAttachments();
}

void AttributedText::fixParagraphStyles() {
    // Only where a run begins inside a paragraph can the style be another one than before.
    for (auto run = _runs.begin(); run != _runs.end();) {
        const auto before = run == _runs.begin() ? run : std::prev(run);
        const auto& style = before->second.attributes.paragraphStyle;
        const auto start = run->second.byte;
        if (start == 0 || _text[start - 1] == '\n' || run->second.attributes.paragraphStyle == style) {
            ++run;
            continue;
        }
        const auto newline = std::min(_text.find('\n', start), _text.size() - 1);
        const auto rest = std::string_view(_text).substr(start, newline + 1 - start);
        const Range range{run->first, characterCount(rest)};
        changeAttributes(range, [style](TextAttributes& present) { present.paragraphStyle = style; });
        run = _runs.lower_bound(range.end());
    }
}

void AttributedText::fixAttachments() {
    std::vector<Range> wrong;
    for (const auto& run : runs()) {
        if (run.attributes.attachment == nullptr) continue;
        auto location = run.range.location;
        for (const auto piece : split(run.text, kAttachmentCharacter)) {
            const auto length = characterCount(piece);
            if (length > 0) wrong.push_back({location, length});
            location += length + 1;
        }
    }
    for (const auto range : wrong) removeAttribute(range, TextAttribute::attachment);
}

// Attachments ------------------------------------------------------------------------------------------------

std::vector<std::shared_ptr<const FileWrapper>> AttributedText::attachments() const {
    std::vector<std::shared_ptr<const FileWrapper>> all;
    for (const auto& [start, run] : _runs)
        if (run.attributes.attachment != nullptr) all.push_back(run.attributes.attachment);
    return all;
}

bool AttributedText::containsAttachments() const {
    return std::ranges::any_of(_runs,
                               [](const auto& run) { return run.second.attributes.attachment != nullptr; });
}

void AttributedText::removeAllAttachments() {
    AttributedText without;
    for (const auto& run : runs()) {
        if (run.attributes.attachment == nullptr) {
            without.append(run.text, run.attributes);
            continue;
        }
        // The attachment may have been laid over other text, which stays.
        auto attributes = run.attributes;
        attributes.attachment.reset();
        for (const auto& piece : split(run.text, kAttachmentCharacter)) without.append(piece, attributes);
    }
    *this = std::move(without);
}

}  // namespace lorvale
