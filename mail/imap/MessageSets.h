#pragma once
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/mime/dialect.h"

namespace lorvale {

/// Numbers of messages as a command names them.
///
/// Classic: in the order given.  A run of neighbours ends one early, and its last number is written by itself:
/// 1,2,3 gives "1:2,3", and 1,2 gives "1,2".
///
/// Standard: the shortest form, in ascending order, each number once: 3,1,2 gives "1:3".
std::string messageSet(std::span<const std::uint32_t> numbers, MailDialect dialect);

/// The shortest forms, each of `mostBytes` at most (but at least one range), for servers that refuse long
/// lines.  Together they name all of the numbers.
std::vector<std::string> messageSets(std::span<const std::uint32_t> numbers, std::size_t mostBytes);

/// What commands on these numbers name: one text for one command each.  In the classic dialect there is one,
/// however long.
std::vector<std::string> setsOf(std::span<const std::uint32_t> numbers, MailDialect dialect);

/// The numbers that a set names, in its order; what is no number or range ends the reading, and so do more than
/// `most` numbers, since "1:4294967295" is a short text.
std::vector<std::uint32_t> numbersOfSet(std::string_view set, std::size_t most = 10'000'000);

}  // namespace lorvale
