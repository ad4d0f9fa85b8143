#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

class IABooleanQueryTermNodeList;
class IAQueryTree;

/// Reads boolean queries.
///
/// A query is made of words, the operators "&" (and), "!" (and not) and "|" (or), and parentheses.  "&" binds
/// tighter than "!", and "!" tighter than "|"; operators of one kind go from left to right.  Blanks part words.
/// A word is any run of other bytes, 50 of them at most; the rest of a longer run is a word of its own.
///
///     mail & box | post    (mail and box) or post
///     mail ! junk & old    mail and not (junk and old)
///
/// Words side by side are joined by "or", but only after the operators: each of these takes the two operands
/// that were read last when its turn comes.  So "post mail & box" is post or (mail and box), but "mail & box
/// post" is mail or (box and post), and parentheses change nothing about that.  Stored queries count on it, so
/// it stays; a query for people has a "|" between any two words.
class LORVALE_EXPORT IAParser : public IAObject {
public:
    static constexpr std::size_t MaxWordLength = 50;
    /// The most words and operators of one query, and the most that may be open at one time.
    static constexpr std::size_t MaxStack = 99;

    IAParser();
    ~IAParser() override;

    // Each operator is one byte.  Changes count from the next Parse() on.
    std::uint16_t GetOrOperator() const { return orOperator; }
    void SetOrOperator(std::uint16_t c) { orOperator = c; }
    std::uint16_t GetAndOperator() const { return andOperator; }
    void SetAndOperator(std::uint16_t c) { andOperator = c; }
    std::uint16_t GetNotOperator() const { return notOperator; }
    void SetNotOperator(std::uint16_t c) { notOperator = c; }
    std::uint16_t GetLeftFence() const { return leftFence; }
    void SetLeftFence(std::uint16_t c) { leftFence = c; }
    std::uint16_t GetRightFence() const { return rightFence; }
    void SetRightFence(std::uint16_t c) { rightFence = c; }

    /// Whether bytes above 0x7F are letters, as they are in UTF-8; false at the start.  A word is then cut
    /// between characters.
    bool HasUnicodeWords() const { return unicodeWords; }
    void SetUnicodeWords(bool unicode) { unicodeWords = unicode; }

    /// Copies the text.
    void SetText(std::string_view newText) { text = newText; }
    /// Reads the text; its words become nodes of the list, from left to right.  Null for an empty text, and
    /// where a byte that is neither letter, digit, punctuation nor blank follows a blank.  An operand that is
    /// missing is a node without an operator, which IAQueryTree::Validate() finds.
    ///
    /// Raises "Error unballanced parentheses" (IAAccessorInvalidQuery), and "attempt to push a new item into
    /// full stack" (IAAssertionFailure) for a query beyond the limits.
    std::unique_ptr<IAQueryTree> Parse(IABooleanQueryTermNodeList& termNodes) const;

private:
    std::string text;
    std::uint16_t orOperator = '|';
    std::uint16_t andOperator = '&';
    std::uint16_t notOperator = '!';
    std::uint16_t leftFence = '(';
    std::uint16_t rightFence = ')';
    bool unicodeWords = false;
};

}  // namespace brindle
