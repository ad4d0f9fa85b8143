#pragma once
#include <string>
#include <string_view>

namespace mailhost {

/// The piece of a text, some 200 characters, that has the most different words of a query, these marked: bold
/// where the output is styled, else between asterisks.  The start of the text where it has none of them.
std::string passageOf(std::string_view text, std::string_view query, bool styled);

}  // namespace mailhost
