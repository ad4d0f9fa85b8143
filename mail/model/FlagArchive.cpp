#include <algorithm>
#include <limits>

#include "lorvale/message/flags.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

namespace {

std::uint32_t smallNumber(const PropertyList& value) {
    return static_cast<std::uint32_t>(
        std::clamp<std::int64_t>(value.integer(), 0, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace

// An array of three, as the classes that hold flags among their own values count on:
//   0  the dictionary, texts by name; false where it was not made
//   1  the bits
//   2  the priority
PropertyList toPropertyList(const MessageFlags& flags) {
    PropertyList dictionary(false);
    if (flags._flags) {
        PropertyList::Dictionary texts;
        for (const auto& [key, value] : *flags._flags) texts.emplace(key, value);
        dictionary = std::move(texts);
    }
    return PropertyList::Array{std::move(dictionary), flags._flagBits, flags._priority};
}

std::shared_ptr<MessageFlags> messageFlagsFromPropertyList(const PropertyList& archive) {
    auto flags = std::make_shared<MessageFlags>(smallNumber(archive[1]), smallNumber(archive[2]));
    if (const auto* const texts = archive[0].get<PropertyList::Dictionary>()) {
        flags->_flags = std::make_shared<FlagDictionary>();
        for (const auto& [key, value] : *texts) flags->_flags->emplace(key, value.string());
    }
    return flags;
}

}  // namespace lorvale
