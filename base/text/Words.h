#pragma once
#include <span>
#include <string>
#include <string_view>

/// What searching needs to know of text in any script: where its words are, and which of them are the same.

namespace lorvale {

/// Sets marks[i] to 1 where a word, or what stands between two words, begins at byte i by Unicode's rules (UAX
/// #29), and to 0 elsewhere.  The text is valid UTF-8, and there are as many marks as bytes.  Linear.
void markWordStarts(std::string_view text, std::span<char> marks);

bool isLetterOrNumber(char32_t c);

/// Whether `c` belongs to the character before it: combining marks, what is not shown, and the two voicing
/// marks of narrow Katakana.
bool joinsCharacterBefore(char32_t c);

/// The scripts that put no blanks between words, which so cannot be found without a dictionary: Han, Kana, Thai
/// and others of that family.
bool isWrittenWithoutBlanks(char32_t c);

/// Appends a word as it is searched for: without case, accents and vowel points, in compatible forms ("Ａ" is
/// "a", "ﬁ" is "fi"), with the plain apostrophe, and without what is not shown.  Marks that make another
/// letter, as those of Kana and of the Indian scripts do, stay.  Bytes that are no UTF-8 stay, too.
void appendFoldedForSearch(std::string& folded, std::string_view word);

}  // namespace lorvale
