#include "fuzz/FuzzTarget.h"
#include "fuzz/mail/TarHeaders.h"
#include "mail/mime/ArchiveCheck.h"

using namespace lorvale;

namespace {

// What passes is the beginning of the bytes, passes again and is whole members; what does not has a reason.
void requireSoundAnswer(std::string_view archive) {
    std::string why;
    const auto harmless = harmlessArchive(archive, why);
    if (!harmless) return fuzz::require(!why.empty());
    fuzz::require(archive.starts_with(*harmless));
    fuzz::require(harmlessArchive(*harmless, why) == *harmless);
}

}  // namespace

LORVALE_FUZZ_TARGET(input) {
    std::string archive(input);
    requireSoundAnswer(archive);
    fuzz::mendChecksums(archive);
    requireSoundAnswer(archive);
}
