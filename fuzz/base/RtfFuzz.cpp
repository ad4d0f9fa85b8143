#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "lorvale/values/rich_text.h"
#include "lorvale/values/text.h"

// Whatever the bytes, the text is valid, and so is the document written from it: reading that and writing it
// again changes nothing.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace lorvale;
    const auto text = attributedTextFromRTF(Data(nullptr, bytes, size));
    if (!isValidUtf8(text.string())) std::abort();
    const auto once = rtfFromAttributedText(text);
    if (!(rtfFromAttributedText(attributedTextFromRTF(once)) == once)) std::abort();
    return 0;
}
