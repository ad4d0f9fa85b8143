#include "fuzz/FuzzTarget.h"
#include "lorvale/values/property_list.h"

using lorvale::Data, lorvale::PropertyList;

namespace {

std::optional<PropertyList> readAgain(const PropertyList& list) {
    return PropertyList::parse(Data(list.xml()));
}

}  // namespace

// What was read can be written, and reading that and writing it again changes nothing; and any bytes can be a
// key, a text or data, and come back as they were.
LORVALE_FUZZ_TARGET(any) {
    const PropertyList holder =
        PropertyList::Dictionary{{std::string(any), PropertyList::Array{any, Data::copyOf(any)}}};
    if (readAgain(holder) != holder) std::abort();

    const auto list = PropertyList::parse(Data::ofStatic(any));
    if (!list || list->isNull()) return;
    const auto again = readAgain(*list);
    if (!again || again->xml() != list->xml()) std::abort();
}
