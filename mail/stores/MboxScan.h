#pragma once
#include <cstdint>
#include <string_view>
#include <vector>

namespace lorvale {

/// Where a message lies in a flat mailbox file, in bytes.  Files above 4 GB are not opened, so 32 bits do.
struct MboxRange {
    std::uint32_t location = 0, length = 0;

    std::uint64_t end() const { return std::uint64_t{location} + length; }
    friend bool operator==(const MboxRange&, const MboxRange&) = default;
};

/// What a message begins with, at the start of the file or right behind a newline.
inline constexpr std::string_view kMboxSeparator = "From ";

/// Whether messages can stand in these bytes: nothing but white space, or a "From " right behind it.
bool isMbox(std::string_view bytes);

/// All messages of a flat mailbox, at most 4 GB of it, in the order of the file.  A message begins with "From "
/// at the start of the file, behind any ASCII white space, or right behind a newline, and runs up to the next
/// one or the end.  Without a "From " at the start there is no message at all.  Linear in the size.
std::vector<MboxRange> mboxRanges(std::string_view bytes);

/// How many bytes of a message are its header block with the empty line that ends it; all of them when there is
/// no such line.
std::size_t mboxHeaderLength(std::string_view message);

/// The newlines to write behind these bytes so that they end with an empty line: none, one or two.
std::string_view mboxPadding(std::string_view bytes);

}  // namespace lorvale
