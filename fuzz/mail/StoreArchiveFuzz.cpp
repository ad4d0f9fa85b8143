#include "base/text/Crc32.h"
#include "fuzz/FuzzTarget.h"
#include "mail/imap/StoreArchive.h"

/// What stands behind a good checksum is no list, or one that is written and read again as the same bytes.
LORVALE_FUZZ_TARGET(input) {
    const std::string contents(input);
    std::string file{"LvIM\0\0\0\2", 8};
    const auto checksum = lorvale::crc32(contents);
    for (const int shift : {24, 16, 8, 0}) file += static_cast<char>(checksum >> shift);
    if (const auto archive = lorvale::storeArchiveFromBytes(file + contents)) {
        const auto written = lorvale::bytesOf(*archive);
        const auto again = lorvale::storeArchiveFromBytes(written);
        if (!again || lorvale::bytesOf(*again) != written || again->all.size() != archive->all.size())
            std::abort();
    }
}
