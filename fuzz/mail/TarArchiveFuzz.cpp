#include <cstdint>
#include <cstdlib>

#include "fuzz/mail/CodecFuzz.h"
#include "mail/mime/ArchiveCheck.h"

// What passes is the beginning of the bytes, passes again and is whole members; what does not has a reason.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace lorvale;
    const auto archive = fuzz::viewOf(bytes, size);
    std::string why;
    const auto harmless = harmlessArchive(archive, why);
    if (!harmless) {
        fuzz::require(!why.empty());
        return 0;
    }
    fuzz::require(archive.starts_with(*harmless));
    fuzz::require(harmlessArchive(*harmless, why) == *harmless);
    return 0;
}
