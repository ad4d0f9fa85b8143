#pragma once
#include <map>
#include <string>
#include <string_view>

#include "lorvale/message.h"

namespace mailhost {

/// The value of a "Content-Type:" header: "text/plain; charset=utf-8".  Type and parameter names are in lower
/// case; quoted values are unquoted, comments dropped.
struct ContentType {
    std::string type = "text/plain";
    std::map<std::string, std::string, std::less<>> parameters;

    static ContentType parse(std::string_view value);
    bool isText() const { return type.starts_with("text/"); }
};

/// The body of a message as text.
struct BodyText {
    std::string text;     // UTF-8; of a body that is not text, its bytes
    bool decoded = true;  // false: the body as it stands in the mailbox
    std::string type, charset, transferEncoding;
};

/// Decodes a body in one part by its transfer encoding and charset.  A multipart body, and one that is not
/// text, comes as it stands: the library does not tell parts apart yet.
BodyText bodyText(lorvale::Message& message);

}  // namespace mailhost
