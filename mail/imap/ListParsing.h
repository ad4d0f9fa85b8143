#pragma once
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "lorvale/imap/value.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/values/data.h"

/// The values in a server's answers.  Nothing here fails: what is no value ends the reading, and lists nest
/// kMostLevels deep and hold kMostValues in all.  Linear in the length of the text, whatever it holds.

namespace lorvale {

inline constexpr int kMostLevels = 100;
/// Of one text.  A value takes fifty times the memory of the two bytes that make one.
inline constexpr int kMostValues = 1'000'000;

/// Whether a blank ends a word in the classic reading, or is part of it.
enum class Spaces : bool { joinWords, separateWords };

/// The first list in parentheses of a text, in the classic manner; nullopt without one.  NIL reads as an empty
/// text.
std::optional<IMAPValue> parseClassicList(const Data& text, Spaces spaces);

/// The values that stand in a text one behind the other, by the grammar of RFC 3501, section 9, up to the first
/// byte that fits no value or to the end.
IMAPValue::List parseValues(const Data& text);

/// The value of a bracketed key in a text such as "[UIDVALIDITY 123] ok".
struct BracketValue {
    std::string_view key;                   ///< empty without a bracket
    std::optional<std::string_view> value;  ///< nullopt when nothing stands behind the key
};
BracketValue responseValue(std::string_view response, MailDialect dialect);

}  // namespace lorvale
