#include "lorvale/values/property_list.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "lorvale/values/text.h"

namespace lorvale {

namespace {

/// The number that a whole text is.
template <class Number>
std::optional<Number> numberIn(std::string_view text) {
    text = trimmed(text);
    if (text.starts_with('+')) text.remove_prefix(1);
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<bool> truthIn(std::string_view text) {
    text = trimmed(text);
    if (equalIgnoringAsciiCase(text, "YES") || equalIgnoringAsciiCase(text, "true")) return true;
    if (equalIgnoringAsciiCase(text, "NO") || equalIgnoringAsciiCase(text, "false")) return false;
    if (const auto number = numberIn<std::int64_t>(text)) return *number != 0;
    return std::nullopt;
}

std::int64_t cutOff(double number) {
    constexpr double kLimit = 9223372036854775808.0;  // 2 to the 63rd
    if (std::isnan(number)) return 0;
    if (number >= kLimit) return std::numeric_limits<std::int64_t>::max();
    if (number < -kLimit) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(number);
}

std::string textOf(double number) {
    char buffer[64];
    const auto [end, error] = std::to_chars(std::begin(buffer), std::end(buffer), number);
    return {buffer, end};
}

}  // namespace

bool PropertyList::boolean(bool otherwise) const {
    if (const auto* const value = get<bool>()) return *value;
    if (const auto* const value = get<std::int64_t>()) return *value != 0;
    if (const auto* const value = get<double>()) return *value != 0;
    if (const auto* const value = get<std::string>()) return truthIn(*value).value_or(otherwise);
    return otherwise;
}

std::int64_t PropertyList::integer(std::int64_t otherwise) const {
    if (const auto* const value = get<bool>()) return *value ? 1 : 0;
    if (const auto* const value = get<std::int64_t>()) return *value;
    if (const auto* const value = get<double>()) return cutOff(*value);
    if (const auto* const value = get<std::string>()) {
        if (const auto number = numberIn<std::int64_t>(*value)) return *number;
        if (const auto number = numberIn<double>(*value)) return cutOff(*number);
        if (const auto truth = truthIn(*value)) return *truth ? 1 : 0;
    }
    return otherwise;
}

double PropertyList::real(double otherwise) const {
    if (const auto* const value = get<double>()) return *value;
    if (const auto* const value = get<std::string>()) return numberIn<double>(*value).value_or(otherwise);
    if (get<bool>() != nullptr || get<std::int64_t>() != nullptr) return static_cast<double>(integer());
    return otherwise;
}

std::string PropertyList::string(std::string_view otherwise) const {
    if (const auto* const value = get<std::string>()) return *value;
    if (const auto* const value = get<bool>()) return *value ? "YES" : "NO";
    if (const auto* const value = get<std::int64_t>()) return std::to_string(*value);
    if (const auto* const value = get<double>()) return textOf(*value);
    if (const auto* const value = get<Date>()) return value->iso8601();
    return std::string(otherwise);
}

std::vector<std::string> PropertyList::strings() const {
    std::vector<std::string> texts;
    for (const auto& entry : array()) {
        const bool isText =
            entry.get<std::string>() || entry.get<std::int64_t>() || entry.get<double>() || entry.get<Date>();
        if (isText) texts.push_back(entry.string());
    }
    return texts;
}

std::optional<Data> PropertyList::data() const {
    const auto* const value = get<Data>();
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<Date> PropertyList::date() const {
    if (const auto* const value = get<Date>()) return *value;
    if (const auto* const value = get<std::string>()) return dateFromIso8601(*value);
    return std::nullopt;
}

const PropertyList::Array& PropertyList::array() const {
    static const Array none;
    const auto* const value = get<Array>();
    return value == nullptr ? none : *value;
}

const PropertyList::Dictionary& PropertyList::dictionary() const {
    static const Dictionary none;
    const auto* const value = get<Dictionary>();
    return value == nullptr ? none : *value;
}

namespace {

const PropertyList& nothing() {
    static const PropertyList null;
    return null;
}

}  // namespace

const PropertyList& PropertyList::operator[](std::string_view key) const {
    const auto& entries = dictionary();
    const auto found = entries.find(key);
    return found == entries.end() ? nothing() : found->second;
}

const PropertyList& PropertyList::operator[](std::size_t index) const {
    const auto& entries = array();
    return index < entries.size() ? entries[index] : nothing();
}

void PropertyList::set(std::string_view key, PropertyList value) {
    if (value.isNull()) return remove(key);
    if (get<Dictionary>() == nullptr) _value = Dictionary();
    get<Dictionary>()->insert_or_assign(std::string(key), std::move(value));
}

void PropertyList::remove(std::string_view key) {
    auto* const entries = get<Dictionary>();
    if (entries == nullptr) return;
    if (const auto found = entries->find(key); found != entries->end()) entries->erase(found);
}

void PropertyList::append(PropertyList value) {
    if (get<Array>() == nullptr) _value = Array();
    get<Array>()->push_back(std::move(value));
}

}  // namespace lorvale
