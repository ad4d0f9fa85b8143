#include "fuzz/FuzzTarget.h"
#include "lorvale/values/rich_text.h"
#include "lorvale/values/text.h"

// Whatever the bytes, the text is valid, with a charset and without one; pictures are asked for and nothing
// else is; and what was read can be kept as RTF.
LORVALE_FUZZ_TARGET(input) {
    using namespace lorvale;
    static const auto picture = FileWrapper::regularFile(Data());
    const auto html = Data::ofStatic(input);
    const auto named = attributedTextFromHTML(html, "utf-8", [](std::string_view) { return picture; });
    auto text = attributedTextFromHTML(html);
    if (!isValidUtf8(named.string()) || !isValidUtf8(text.string())) std::abort();
    if (attributedTextFromRTF(rtfFromAttributedText(text)).string() != text.string()) std::abort();
}
