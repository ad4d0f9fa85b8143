#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/values/attributed_text.h"
#include "lorvale/values/data.h"
#include "lorvale/values/file_wrapper.h"

/// Documents as attributed text: RTF 1.9, RTFD (a directory with the RTF in "TXT.rtf" and the attachments
/// beside it) and HTML.
///
/// The bytes come from letters, so no reader throws on odd ones, fetches or runs anything, or needs time or
/// memory out of proportion: where markup is nested deeper than any person writes it, or changes more often
/// than some 200,000 times, the text still comes whole, with the attributes of the last level that counted.
/// What a document says beyond the attributes of AttributedText is left out; its text never is, unless it is
/// hidden.  All operations may be called by any thread.

namespace lorvale {

/// Finds a file by the name that a document gives it; null for none, and the document's other text for it is
/// shown.
using AttachmentSource = std::function<std::shared_ptr<const FileWrapper>(std::string_view name)>;

/// Text, fonts, colours, paragraphs, tab stops, links, and pictures as attachments.  Bytes that are no RTF come
/// back as plain text.
[[nodiscard]] LORVALE_EXPORT AttributedText attributedTextFromRTF(const Data& rtf);

/// The document for a text, in ASCII.  Reading it gives the text back with its attributes, but: attachments are
/// left out, sizes are rounded to half points, colours to 256 steps without alpha, indents and tab stops to
/// twentieths of a point, underlining is there or not, and a paragraph has one style, that of its first
/// character.  A tail indent that counts from the left margin is left out.
[[nodiscard]] LORVALE_EXPORT Data rtfFromAttributedText(const AttributedText& text);

/// As attributedTextFromRTF(), with the attachments of the directory.  Nullopt when it holds no RTF.
[[nodiscard]] LORVALE_EXPORT std::optional<AttributedText> attributedTextFromRTFD(const FileWrapper& directory);
/// The same from a path; logs what cannot be read.
[[nodiscard]] LORVALE_EXPORT std::optional<AttributedText> attributedTextFromRTFDFile(std::string_view path);

/// The directory for a text: as rtfFromAttributedText(), with the attachments.  One without a name gets one;
/// where two have the same, the second gets another.
[[nodiscard]] LORVALE_EXPORT std::shared_ptr<FileWrapper> rtfdFromAttributedText(const AttributedText& text);
/// Writes that directory to a path, in the place of whatever is there.  Atomically: a crash shows the old one
/// or the new one, or for a moment none under this name and the old one beside it; else the old one is removed
/// first.  False after logging what went wrong.
[[nodiscard]] LORVALE_EXPORT bool writeRTFDFile(const AttributedText& text, std::string_view path,
                                                bool atomically);

/// A page as text: headings, paragraphs, lists, quotations, preformatted text, tables with tabs between the
/// cells, links, fonts, colours, alignment; from elements and from style attributes.  Scripts, style sheets
/// and hidden elements are left out.  The bytes are read in the charset that their byte order mark names, else
/// in `charset`, else in the one that the page names, else as UTF-8 or, when they are none, Windows 1252.
/// `pictures` is asked for each picture by its address ("cid:..."); one that is not found shows its
/// alternative text.
[[nodiscard]] LORVALE_EXPORT AttributedText
attributedTextFromHTML(const Data& html, std::optional<std::string_view> charset = std::nullopt,
                       const AttachmentSource& pictures = nullptr);

/// The address under which a page finds an attachment as a picture ("cid:..."); nullopt leaves it out.
using AttachmentAddress =
    std::function<std::optional<std::string>(const std::shared_ptr<const FileWrapper>& attachment)>;

/// A page in UTF-8 for a text, for other programs to show: no scripts, and no link that runs one.  Reading it
/// gives the text back with its fonts, colours, underlining, links and alignment, but: line ends at its start
/// and end go, control characters become blanks, attributes of blanks and line ends may change, a link looks
/// like one, colours have 256 steps.  Indents are written and not read, tab stops are left out.
[[nodiscard]] LORVALE_EXPORT Data htmlFromAttributedText(const AttributedText& text,
                                                         const AttachmentAddress& addressOf = nullptr);

}  // namespace lorvale
