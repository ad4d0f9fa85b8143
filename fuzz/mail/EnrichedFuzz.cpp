#include "fuzz/FuzzTarget.h"
#include "lorvale/platform/exception.h"
#include "lorvale/values/text.h"
#include "mail/mime/EnrichedReader.h"

// Whatever the text, what comes of it is valid, and only the commands that are refused throw.
LORVALE_FUZZ_TARGET(input) {
    using namespace lorvale;
    for (const auto read : {attributedStringFromMimeEnrichedString, attributedStringFromMimeRichTextString}) {
        try {
            if (!isValidUtf8(read(input).string())) std::abort();
        } catch (const NamedException&) {
            if (asciiLowered(input).find("script") == std::string::npos) std::abort();
        }
    }
}
