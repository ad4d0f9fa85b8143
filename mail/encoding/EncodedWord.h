#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "base/text/Cursor.h"
#include "lorvale/values/encoding.h"

/// Encoded words as the standard dialect reads them (RFC 2047, with the language tags of RFC 2231, section 5).

namespace lorvale {

inline constexpr std::string_view kWordOpener = "=?";

/// "=?charset?letter?text?=", as slices of what it was read from.
struct EncodedWord {
    std::string_view charset;  ///< without its language tag
    bool isBase64 = false;     ///< else the "Q" encoding
    std::string_view text;
};

/// Takes the word that stands here; nullopt, and nothing taken, when none does.  Blanks inside a word are
/// forgiven.  None of the bytes of `barred` may stand in its text.  Looks no further than the fourth question
/// mark, so that a text full of openers costs no more than its length.
std::optional<EncodedWord> takeWord(Cursor& cursor, std::string_view barred = {});

/// Words that follow each other, with nothing or white space between.  The bytes of neighbours in one charset
/// are put together before they are converted: many programs cut words inside a character.
class WordRun {
public:
    explicit WordRun(StringEncoding preferred) : _preferred(preferred) {}

    void add(const EncodedWord& word);
    /// The text of the words, line ends in it made blanks; empties the run.
    std::string take();

private:
    void convert();

    const StringEncoding _preferred;
    std::string_view _charset;  // of _bytes; borrowed from the last word
    std::string _bytes, _text;
};

/// Takes the words from here on, with the white space between them but none behind the last; nullopt without
/// one.
std::optional<std::string> takeWords(Cursor& cursor, StringEncoding preferred, std::string_view barred = {});

}  // namespace lorvale
