#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "lorvale/values/property_list.h"

using lorvale::Data, lorvale::PropertyList;

namespace {

std::optional<PropertyList> readAgain(const PropertyList& list) {
    return PropertyList::parse(Data(list.xml()));
}

}  // namespace

// What was read can be written, and reading that and writing it again changes nothing; and any bytes can be a
// key, a text or data, and come back as they were.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string_view any(reinterpret_cast<const char*>(bytes), size);
    const PropertyList holder =
        PropertyList::Dictionary{{std::string(any), PropertyList::Array{any, Data::copyOf(any)}}};
    if (readAgain(holder) != holder) std::abort();

    const auto list = PropertyList::parse(Data(nullptr, bytes, size));
    if (!list || list->isNull()) return 0;
    const auto again = readAgain(*list);
    if (!again || again->xml() != list->xml()) std::abort();
    return 0;
}
