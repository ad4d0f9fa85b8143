#pragma once
#include <string>
#include <string_view>

namespace mailhost {

/// What the writer of a message wrote: without quoted lines and the line that announces them ("... wrote:"),
/// without the signature (behind a line "-- ", or "--" alone) and without a message that stands below
/// ("-----Original Message-----").  Nor with what a mailing list puts below each letter: behind a rule, or "To
/// unsubscribe".  Paragraphs stay apart, also where something was left out.
std::string ownText(std::string_view body);

}  // namespace mailhost
