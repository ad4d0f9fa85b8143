#pragma once
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/range.h"

/// Regular expressions of the small, classic kind, found by backtracking.
///
/// `a|b` one or the other, the first that fits; `( )` a group, at most nine; `*`, `+`, `?` repeat the
/// character, the set or the group before them, as often as possible; `.` is any character; `^` and `$` are the
/// beginning and the end of the text; `[a-z]` is one character of a set and `[^a-z]` one that is not in it,
/// where `]` or
/// `-` standing first is itself; `\` takes the next character as it stands.  The first place that fits counts,
/// and there the first way to fit, not the longest one.
///
/// Expressions and texts are compared as one byte a character, in which every character above 0x7F is a blank,
/// so that places are counted in characters; a zero byte ends both.
///
/// Nothing here is shared by calls but the step limit, so any number of threads may use these operations, each
/// with values of its own.

namespace lorvale {

class PropertyList;

/// An expression as a program for the matcher, and the places of the last match.
struct CompiledExpression {
    static constexpr std::size_t kGroups = 10;  ///< the whole match is group 0
    static constexpr char kMagic = '\x9C';      ///< the first byte of every program

    std::array<const char*, kGroups> starts{}, ends{};  ///< into the text matched last; null for a group unset
    char firstCharacter = '\0';                         ///< every match begins with it, unless it is 0
    bool isAnchored = false;                            ///< a match begins where the text begins
    std::string required;                               ///< a text that every match holds; may be empty
    std::string program;
};

/// Null for an expression that is none, with the reason in `complaint` where that is not null.  A null
/// expression is refused like any other mistake.
LORVALE_EXPORT std::unique_ptr<CompiledExpression> _MOregcomp(const char* expression,
                                                              std::string* complaint = nullptr);

/// Whether the text, or a part of it, matches; if so, `expression` says where.  False, after a log line, when
/// that cannot be found out within the limit of steps.
LORVALE_EXPORT bool _MOregexec(CompiledExpression& expression, const char* text);

/// `source` with each "&" and "\0" replaced by the last match and "\1" to "\9" by what its groups have matched;
/// "\&" and "\\" stand for "&" and "\".  The text that was matched must still be there.  Nullopt for a program
/// that is none.
LORVALE_EXPORT std::optional<std::string> _MOregsub(const CompiledExpression& expression, const char* source);

/// The compiled expression, null when it is not valid.
LORVALE_EXPORT std::unique_ptr<CompiledExpression> _MOTestAndCompileExpressionString(
    std::string_view expression);
/// Whether the candidate, or a part of it, matches.
LORVALE_EXPORT bool _MOTestAndMatchCandidateWithExpression(std::string_view candidate,
                                                           CompiledExpression& expression);

/// How many steps one match may take, beside four for each character of the text; ten million at first.  An
/// expression written by a stranger can ask for more steps than the age of the universe has moments.  Any
/// thread may set it.
LORVALE_EXPORT void setRegularExpressionStepLimit(std::size_t steps);

/// An expression and its last match.  One thread at a time.
class LORVALE_EXPORT RegularExpression {
public:
    /// The empty expression, which matches everywhere.
    RegularExpression() = default;
    /// Nullopt for an expression that is not valid.
    static std::optional<RegularExpression> regularExpressionWithString(std::string_view expression);
    static bool validExpressionString(std::string_view expression);

    const std::string& expressionString() const { return _expressionString; }
    std::size_t hash() const { return std::hash<std::string>()(_expressionString); }
    /// Equal expressions; the last match does not count.
    friend bool operator==(const RegularExpression& a, const RegularExpression& b) {
        return a._expressionString == b._expressionString;
    }

    /// Whether the text, or a part of it, matches.  The text of the last success matches without a new look.
    bool matchesString(std::string_view text);
    /// Where a group lies in the text, in characters; Range::notFound() when the text does not match or the
    /// group took no part.  Group 0 is the whole match.  Throws InvalidArgumentException for an index above 10.
    Range rangeForSubexpressionAtIndex(std::size_t index, std::string_view text);
    /// What a group has matched; nullopt where the range is not found.
    std::optional<std::string> substringForSubexpressionAtIndex(std::size_t index, std::string_view text);
    /// What each of the ten groups has matched, "" for one that took no part; nullopt without a match.
    std::optional<std::vector<std::string>> subexpressionsForString(std::string_view text);

private:
    using Ranges = std::array<Range, CompiledExpression::kGroups>;

    std::string _expressionString;
    std::optional<std::string> _lastMatch;
    std::optional<Ranges> _lastSubexpressionRanges;
};

/// An expression as a property list, with its version, and back; nullopt for a list that holds no valid one.
LORVALE_EXPORT PropertyList toPropertyList(const RegularExpression& expression);
LORVALE_EXPORT std::optional<RegularExpression> regularExpressionFromPropertyList(const PropertyList& list);

}  // namespace lorvale
