#pragma once
#include <string>

namespace lorvale {

/// A boundary for the standard dialect.  No line of base64 or quoted-printable holds its "=_", and no other
/// body its random part.
std::string composedBoundary();

}  // namespace lorvale
