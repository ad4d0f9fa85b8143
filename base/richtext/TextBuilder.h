#pragma once
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/values/attributed_text.h"

namespace lorvale {

/// In bytes, of what readers take for a link; RTF can still hold it when each of them is escaped.
inline constexpr std::size_t kLongestLink = 4000;

/// Puts an attributed text together from its start to its end, for readers of documents.  Text that comes under
/// the same attributes is gathered, so many small pieces cost no more than few large ones.
///
/// What strangers' markup may cost is bounded: once the attributes laid take kMostForAttributes bytes, further
/// text has none, and further attachments are left out.
class TextBuilder {
public:
    static constexpr std::size_t kMostForAttributes = 64u << 20;

    /// For the text that follows.
    void setAttributes(const TextAttributes& attributes);
    const TextAttributes& attributes() const { return _attributes; }
    /// Whether attributes no longer count, so that nobody need find them out.
    bool isFull() const { return _left == 0; }

    void append(std::string_view utf8) { _pending += utf8; }
    void append(char ascii) { _pending += ascii; }
    /// U+FFFD for what is no character.
    void appendCharacter(char32_t character);
    void appendAttachment(std::shared_ptr<const FileWrapper> attachment);

    /// Everything appended so far, with its attributes fixed.  The builder is empty afterwards.
    AttributedText take();

private:
    void flush();

    AttributedText _text;
    TextAttributes _attributes;      // of the pending text
    TextAttributes _lastAttributes;  // of the text before it
    std::string _pending;
    std::size_t _left = kMostForAttributes;
};

}  // namespace lorvale
