#pragma once
#include <string>
#include <string_view>

namespace lorvale {

/// What ends the lines of a message: '\n', with or without a '\r' before it, but '\r' in what holds no newline
/// at all, as files of old Macintoshes.
inline char lineEndIn(std::string_view bytes) {
    return bytes.find('\n') == std::string_view::npos ? '\r' : '\n';
}

/// The text with "\n" for each "\r\n" and each '\r' alone.
std::string withNewlines(std::string text);

}  // namespace lorvale
