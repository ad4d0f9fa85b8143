#pragma once
#include <string_view>

#include "lorvale/export.h"

namespace lorvale {

/// The text without the marks of replies and forwarded letters, as it is sorted by: "re: ", "re:", "fwd: " and
/// "fwd:" go from its start in this order, each as often as it stands there, in any case of letters.  So
/// "Re: re: x" gives "x", but "Fwd: Re: x" gives "Re: x".  A view into `text`.
LORVALE_EXPORT std::string_view stringByRemovingReAndFwd(std::string_view text);

}  // namespace lorvale
