#include "base/text/StringUtils.h"
#include "lorvale/message/subjects.h"

namespace lorvale {

std::string_view stringByRemovingReAndFwd(std::string_view text) {
    // Gone through once: "Fwd: Re: x" keeps its "Re:", and stored sort keys rely on that.
    for (const std::string_view prefix : {"re: ", "re:", "fwd: ", "fwd:"})
        text = stringByRemovingPrefix(text, prefix, true);
    return text;
}

}  // namespace lorvale
