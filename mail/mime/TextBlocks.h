#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/values/data.h"

/// Files inside plain text, as mail had them before MIME and news has them still.

namespace lorvale {

/// A file and the lines that hold it, with their line ends.
struct TextBlock {
    std::size_t start = 0, end = 0;  ///< bytes of the text
    std::string name;                ///< as given, UTF-8; may be empty
    Data contents;
};

/// The first uuencoded block: a "begin" line with permissions and a name, lines of data, "end", which may be
/// cut off.
std::optional<TextBlock> firstUuencodedBlock(const Data& text);

/// All uuencoded and yEnc blocks, in order.  Only what is complete counts here, since people also write "begin"
/// and "=ybegin" into letters: a block has its data lines and its last line.
std::vector<TextBlock> blocksInText(const Data& text);

}  // namespace lorvale
