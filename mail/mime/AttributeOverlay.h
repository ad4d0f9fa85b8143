#pragma once
#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "base/richtext/TextBuilder.h"

namespace lorvale {

/// The attributes that are open while a text is parsed, kept beside it until it is complete: one stack for each
/// attribute.  What was opened last holds for the text that comes, until it is ended; then the one before holds
/// again.  Ends need not come in the order of the begins of other attributes.
class AttributeOverlay {
public:
    /// Opens what every text begins with: the user's font and the default paragraph style.
    void beginParsing();
    /// Ends what is open, and answers the text with its attributes fixed.
    AttributedText endParsing();

    /// `value` has this attribute; one that lacks it is logged and does not count.
    void beginAttribute(TextAttribute name, const TextAttributes& value);
    /// The one that was begun last; nothing when none is open.
    void endAttribute(TextAttribute name);
    /// Null when none is open.
    const TextAttributes* currentValueForAttribute(TextAttribute name) const;

    void appendString(std::string_view text);

private:
    struct Stack {
        std::vector<TextAttributes> values;
        std::size_t deeper = 0;  // begun beyond the deepest that counts
    };

    const Stack& stack(TextAttribute name) const { return _stacks[static_cast<std::size_t>(name)]; }
    Stack& stack(TextAttribute name) { return _stacks[static_cast<std::size_t>(name)]; }
    void tellAttributes();

    std::array<Stack, 6> _stacks;  // by TextAttribute
    TextBuilder _text;
    bool _changed = true;  // since _text was told
};

}  // namespace lorvale
