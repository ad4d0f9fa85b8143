#pragma once
#include <string>
#include <string_view>

namespace lorvale {

class POP3Header;

/// The line with which a flat mailbox begins an entry: "From SENDER DATE\n".  The date is that of the first
/// "Received:" header, in the local zone; without one it is now.  The sender is that of the message, or else
/// "user@host".  The header may be null.
std::string envelopeLineFor(const POP3Header* header, std::string_view user, std::string_view host);

/// Appends an entry: that line and a text as it came over the wire, with CRLF.  A line that would begin another
/// entry gets a ">", and each CRLF becomes a newline.
void appendSpoolEntry(std::string& out, std::string_view envelopeLine, std::string_view text);

}  // namespace lorvale
