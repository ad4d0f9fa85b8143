#pragma once
#include <cstddef>
#include <string_view>

#include "lorvale/values/data.h"

namespace lorvale {

/// Appends the lines of a text, cut behind a blank where they would reach past the column: the blank stays, so
/// that " \n" tells a reader where to join them again.  A word that is longer than a line stays whole.  Column
/// 0 cuts nothing.  `escapesFrom` puts ">" in front of a line that begins with "From ", by which a mailbox
/// would take it for the beginning of a message.
void appendDataWrapped(ByteBuffer& out, std::string_view text, std::size_t atColumn, bool escapesFrom);

}  // namespace lorvale
