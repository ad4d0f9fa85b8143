#include "fuzz/FuzzTarget.h"
#include "lorvale/values/rich_text.h"
#include "lorvale/values/text.h"

// Whatever the bytes, the text is valid, and so is the document written from it: reading that and writing it
// again changes nothing.
LORVALE_FUZZ_TARGET(input) {
    using namespace lorvale;
    const auto text = attributedTextFromRTF(Data::ofStatic(input));
    if (!isValidUtf8(text.string())) std::abort();
    const auto once = rtfFromAttributedText(text);
    if (!(rtfFromAttributedText(attributedTextFromRTF(once)) == once)) std::abort();
}
