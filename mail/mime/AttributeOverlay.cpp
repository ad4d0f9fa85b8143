#include "mail/mime/AttributeOverlay.h"

#include <utility>

#include "lorvale/platform/log.h"

namespace lorvale {

namespace {

constexpr std::size_t kDeepest = 1000;  // begins of one attribute that count; letters have few

constexpr std::array<std::string_view, 6> kNames = {"font", "foreground color", "underline", "paragraph style",
                                                    "link", "attachment"};

}  // namespace

void AttributeOverlay::beginParsing() {
    *this = AttributeOverlay();
    TextAttributes font, style;
    font.font = Font::user();
    style.paragraphStyle.emplace();
    beginAttribute(TextAttribute::font, font);
    beginAttribute(TextAttribute::paragraphStyle, style);
}

AttributedText AttributeOverlay::endParsing() {
    auto text = _text.take();
    *this = AttributeOverlay();
    return text;
}

void AttributeOverlay::beginAttribute(TextAttribute name, const TextAttributes& value) {
    auto& begun = stack(name);
    if (!value.has(name))
        log("KTAttributedStringAdditions: bogus nil value for attribute %@",
            kNames[static_cast<std::size_t>(name)]);
    if (begun.values.size() == kDeepest) {
        ++begun.deeper;
        return;
    }
    // One without a value shows the one below it.
    const auto* const below = begun.values.empty() ? &value : &begun.values.back();
    begun.values.push_back(value.has(name) ? value : *below);
    _changed = true;
}

void AttributeOverlay::endAttribute(TextAttribute name) {
    auto& begun = stack(name);
    if (begun.deeper > 0) {
        --begun.deeper;
    } else if (!begun.values.empty()) {
        begun.values.pop_back();
        _changed = true;
    }
}

const TextAttributes* AttributeOverlay::currentValueForAttribute(TextAttribute name) const {
    const auto& begun = stack(name).values;
    return begun.empty() ? nullptr : &begun.back();
}

void AttributeOverlay::appendString(std::string_view text) {
    if (text.empty()) return;
    tellAttributes();
    _text.append(text);
}

void AttributeOverlay::tellAttributes() {
    if (!std::exchange(_changed, false) || _text.isFull()) return;
    TextAttributes all;
    for (const auto& begun : _stacks)
        if (!begun.values.empty()) all.add(begun.values.back());
    _text.setAttributes(all);
}

}  // namespace lorvale
