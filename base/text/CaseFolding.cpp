#include "base/text/CaseFolding.h"

#include <utf8proc.h>

#include <algorithm>

#include "lorvale/values/text.h"

namespace lorvale {

void FoldedCharacter::reverse() {
    std::reverse(_characters.begin(), _characters.begin() + static_cast<std::ptrdiff_t>(_count));
}

FoldedCharacter foldedCharacter(char32_t c) {
    FoldedCharacter folded;
    if (c < 0x80) {
        folded.append(static_cast<char32_t>(asciiLower(static_cast<char>(c))));
        return folded;
    }
    std::array<utf8proc_int32_t, FoldedCharacter::kMost> points{};
    int boundary = 0;
    const auto count = isBadByte(c) ? 0
                                    : utf8proc_decompose_char(static_cast<utf8proc_int32_t>(c), points.data(),
                                                              static_cast<utf8proc_ssize_t>(points.size()),
                                                              UTF8PROC_CASEFOLD, &boundary);
    if (count <= 0 || count > static_cast<utf8proc_ssize_t>(points.size())) {
        folded.append(c);
        return folded;
    }
    for (utf8proc_ssize_t i = 0; i < count; ++i)
        folded.append(static_cast<char32_t>(points[static_cast<std::size_t>(i)]));
    return folded;
}

char32_t lowerCharacter(char32_t c) {
    if (isBadByte(c)) return c;
    return static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(c)));
}

char32_t FoldedText::next() {
    if (_next == _pending.end()) {
        if (_rest.empty()) return kEnd;
        const bool forwards = _direction == Direction::forwards;
        _pending = foldedCharacter(forwards ? nextCodePoint(_rest) : lastCodePoint(_rest));
        if (!forwards) _pending.reverse();
        _next = _pending.begin();
    }
    const auto c = *_next++;
    return c == 0 ? kNull : c;
}

}  // namespace lorvale
