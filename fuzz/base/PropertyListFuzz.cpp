#include <cstdint>
#include <cstdlib>

#include "lorvale/values/property_list.h"

// What was read can be written, and reading that and writing it again changes nothing.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using lorvale::Data, lorvale::PropertyList;
    const auto list = PropertyList::parse(Data(nullptr, bytes, size));
    if (!list || list->isNull()) return 0;
    const auto written = list->xml();
    const auto again = PropertyList::parse(Data::copyOf(written));
    if (!again || again->xml() != written) std::abort();
    return 0;
}
