#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lorvale {

/// What the lines of a POP3 server say.  They come from outside: what makes no sense is passed over.

bool isPositive(std::string_view line);  ///< begins with "+OK"

/// The n-th of the words between blanks and tabs, from 0; empty where there are fewer.
std::string_view wordOf(std::string_view line, std::size_t n);

/// Digits alone; a number too large for 64 bits is the largest one, and nullopt is for anything else.
std::optional<std::uint64_t> numberOf(std::string_view word);
/// The same for the number of a message: 1 up to 2^31-1.
std::optional<std::uint32_t> messageNumberOf(std::string_view word);

/// Calls with each line of a text, without its CRLF.
void forEachLine(std::string_view text, const std::function<void(std::string_view line)>& call);

/// A capability by its name, or with the first of its ways, as in "SASL PLAIN": "SASL PLAIN LOGIN" gives
/// "SASL", "SASL PLAIN" and "SASL LOGIN", in upper case.
void addCapabilities(std::string_view line, std::vector<std::string>& to);

}  // namespace lorvale
