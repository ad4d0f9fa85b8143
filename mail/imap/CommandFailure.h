#pragma once
#include <string>
#include <string_view>

#include "mail/imap/Engine.h"

namespace lorvale {

/// What people read of a server's answer: not the word in brackets for programs in front, nor how long it took,
/// "(0.001 + 0.000 secs).", behind, as the server of most systems tells.
std::string reasonForPeople(std::string_view answer);

/// The sentence for people about a command that the server refused; with the answer as it came in the classic
/// dialect.  Leaves the text for any other outcome.
void fillCommandFailure(std::string& text, std::string_view command, const IMAPEngine::Answer& answer,
                        MailDialect dialect);

}  // namespace lorvale
