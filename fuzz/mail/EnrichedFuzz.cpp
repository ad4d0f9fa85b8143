#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/mime/EnrichedReader.h"

// Whatever the text, what comes of it is valid, and only the commands that are refused throw.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace lorvale;
    [[maybe_unused]] static const auto before = setLogSink([](std::string_view) {});
    const std::string_view input(reinterpret_cast<const char*>(bytes), size);
    for (const auto read : {attributedStringFromMimeEnrichedString, attributedStringFromMimeRichTextString}) {
        try {
            if (!isValidUtf8(read(input).string())) std::abort();
        } catch (const NamedException&) {
            if (asciiLowered(input).find("script") == std::string::npos) std::abort();
        }
    }
    return 0;
}
