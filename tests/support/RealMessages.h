#pragma once
#include <string>
#include <string_view>

#include "tests/support/TestSupport.h"

namespace brindle::testing {

/// The bytes behind the header of the message of that ID in the large mailbox of real mail; empty where that
/// is absent, or nothing unpacks it.
inline std::string realMessageBody(std::string_view id) {
    const auto shared = lorvale::testing::sharedData();
    if (!shared) return "";
    const std::string mail = lorvale::testing::unpacked(*shared / "large/english-4k.mbox.xz");
    const std::size_t message = mail.find("\nMessage-Id: " + std::string(id));
    if (message == std::string::npos) return "";
    const std::size_t body = mail.find("\n\n", message) + 2;
    return mail.substr(body, mail.find("\n\nFrom ", body) + 1 - body);
}

}  // namespace brindle::testing
