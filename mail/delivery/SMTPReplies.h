#pragma once
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// What a mail server says, apart from how it comes.

namespace lorvale {

/// The class of a reply by its first character: 0 to 5, or 6 for anything else.
int classicReplyClass(std::string_view line);

/// One line of a reply, RFC 5321, section 4.2.
struct SMTPReplyLine {
    int code = 0;           ///< 200 to 599; 0: not a reply
    bool isLast = true;     ///< no further line belongs to it
    std::string_view text;  ///< behind the code, without the line end; a slice of the line
};
SMTPReplyLine smtpReplyLine(std::string_view line);

/// What a server can do beyond the plain protocol.
struct SMTPExtensions {
    bool pipelining = false, eightBit = false, utf8 = false, startTLS = false, size = false;
    std::size_t mostBytes = 0;        ///< of a mail; 0: no limit told
    std::vector<std::string> logins;  ///< in lower case
};
/// Takes a line of the reply to EHLO, without its code.  Unknown words change nothing.
void addExtension(SMTPExtensions& extensions, std::string_view line);

}  // namespace lorvale
