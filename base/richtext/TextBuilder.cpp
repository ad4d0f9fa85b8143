#include "base/richtext/TextBuilder.h"

#include <algorithm>
#include <utility>

#include "lorvale/values/text.h"

namespace lorvale {

namespace {

std::size_t costOf(const TextAttributes& attributes) {
    constexpr std::size_t kNode = 64;  // of the map that holds the runs
    auto cost = sizeof(TextAttributes) + kNode;
    if (attributes.font) cost += attributes.font->family.size();
    if (attributes.link) cost += attributes.link->size();
    if (attributes.paragraphStyle) cost += attributes.paragraphStyle->tabStops.size() * sizeof(TabStop);
    return cost;
}

}  // namespace

void TextBuilder::setAttributes(const TextAttributes& attributes) {
    if (attributes == _attributes) return;
    flush();
    _attributes = attributes;
}

void TextBuilder::appendCharacter(char32_t character) {
    const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
    appendUtf8(_pending, isSurrogate ? 0xFFFD : character);
}

void TextBuilder::appendAttachment(std::shared_ptr<const FileWrapper> attachment) {
    flush();
    if (isFull()) return;
    auto attributes = _attributes;
    attributes.attachment = std::move(attachment);
    _left -= std::min(_left, costOf(attributes));
    _text.append(kAttachmentCharacter, attributes);
    _lastAttributes = std::move(attributes);
}

void TextBuilder::flush() {
    if (_pending.empty()) return;
    if (_attributes != _lastAttributes) {
        _left -= std::min(_left, costOf(_attributes));
        _lastAttributes = isFull() ? TextAttributes() : _attributes;
    }
    _text.append(_pending, _lastAttributes);
    _pending.clear();
}

AttributedText TextBuilder::take() {
    flush();
    _text.fixAttributes();
    auto taken = std::exchange(_text, {});
    *this = TextBuilder();
    return taken;
}

}  // namespace lorvale
