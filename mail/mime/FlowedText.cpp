#include "mail/mime/FlowedText.h"

#include <algorithm>

#include "base/text/Cursor.h"

namespace lorvale {

std::string unflowedText(std::string_view text, bool deletesSpace) {
    constexpr std::string_view kSignature = "-- ";  // section 4.3: never flows
    std::string out;
    out.reserve(text.size());
    bool flows = false;  // whether the line before goes on
    std::size_t depth = 0;
    for (Cursor cursor(text); !cursor.atEnd();) {
        auto line = cursor.takeLine();
        const bool hasEnd = cursor.takenSince(0).ends_with('\n');
        const auto marks = std::min(line.find_first_not_of('>'), line.size());
        line.remove_prefix(marks);
        if (line.starts_with(' ')) line.remove_prefix(1);  // section 4.4: stuffed
        const bool isSignature = line == kSignature;
        if (flows && (marks != depth || isSignature)) {
            out += '\n';
            flows = false;
        }
        if (!flows) {
            out.append(marks, '>');
            if (marks > 0 && !line.empty()) out += ' ';
        }
        depth = marks;
        flows = line.ends_with(' ') && !isSignature;
        if (flows && deletesSpace) line.remove_suffix(1);
        out += line;
        if (!flows && hasEnd) out += '\n';
    }
    if (flows) out += '\n';
    return out;
}

}  // namespace lorvale
