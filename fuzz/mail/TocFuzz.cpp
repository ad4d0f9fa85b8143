#include "fuzz/FuzzTarget.h"
#include "lorvale/platform/exception.h"
#include "mail/stores/TableOfContents.h"

using namespace lorvale;

namespace {

const TOCMessage& at(const TableOfContents& table, std::size_t index) {
    return static_cast<const TOCMessage&>(*table.messages()[index]);
}

}  // namespace

/// Bytes are no table, or one that is written and read again says the same of every message, and writing that
/// once more gives the same bytes.
LORVALE_FUZZ_TARGET(input) {
    std::unique_ptr<TableOfContents> table;
    try {
        table = TableOfContents::ofBytes("", Data::copyOf(input));
    } catch (const NamedException&) {
        return;
    }
    const auto written = table->cachedData(1);
    const auto again = TableOfContents::ofBytes("", written);
    fuzz::require(again->count() == table->count() && again->version() == table->version());
    for (std::size_t i = 0; i < table->count(); ++i) {
        const auto &one = at(*table, i), &other = at(*again, i);
        fuzz::require(one.mboxRange() == other.mboxRange() && one.listing() == other.listing());
        fuzz::require(one.attachment() == other.attachment() && one.refState() == other.refState());
        fuzz::require(one.isDeleted() == other.isDeleted() &&
                      (one.isRead() == other.isRead() || one.isDeleted()));
    }
    fuzz::require(again->cachedData(1) == written);
}
