#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "lorvale/platform/exception.h"
#include "mail/stores/TableOfContents.h"

namespace {

void require(bool truth) {
    if (!truth) std::abort();
}

const lorvale::TOCMessage& at(const lorvale::TableOfContents& table, std::size_t index) {
    return static_cast<const lorvale::TOCMessage&>(*table.messages()[index]);
}

}  // namespace

/// Bytes are no table, or one that is written and read again says the same of every message, and writing that
/// once more gives the same bytes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using lorvale::TableOfContents;
    std::unique_ptr<TableOfContents> table;
    try {
        table = TableOfContents::ofBytes("", lorvale::Data::copyOf({reinterpret_cast<const char*>(bytes), size}));
    } catch (const lorvale::NamedException&) {
        return 0;
    }
    const auto written = table->cachedData(1);
    const auto again = TableOfContents::ofBytes("", written);
    require(again->count() == table->count() && again->version() == table->version());
    for (std::size_t i = 0; i < table->count(); ++i) {
        const auto &one = at(*table, i), &other = at(*again, i);
        require(one.mboxRange() == other.mboxRange() && one.listing() == other.listing());
        require(one.attachment() == other.attachment() && one.refState() == other.refState());
        require(one.isDeleted() == other.isDeleted() && (one.isRead() == other.isRead() || one.isDeleted()));
    }
    require(again->cachedData(1) == written);
    return 0;
}
