#pragma once
#include <string>

namespace lorvale {

/// A server as people write it: "host", "host:25", "host:service", "[address]:25", or an address in digits with
/// colons of its own.
struct ServerPlace {
    static ServerPlace of(const std::string& text);

    std::string host, port;  ///< the port as written; empty where none is
};

}  // namespace lorvale
