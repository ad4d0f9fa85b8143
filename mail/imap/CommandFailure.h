#pragma once
#include <string>
#include <string_view>

#include "mail/imap/Engine.h"

namespace lorvale {

/// The sentence for people about a command that the server refused.  Leaves the text for any other outcome.
void fillCommandFailure(std::string& text, std::string_view command, const IMAPEngine::Answer& answer);

}  // namespace lorvale
