#include "mail/accounts/AccountEntry.h"

#include <optional>
#include <utility>

#include "mail/accounts/AccountKeys.h"

namespace lorvale {

namespace {

std::string textIn(const PropertyList& dictionary, std::string_view key) {
    const auto* const text = dictionary[key].get<std::string>();
    return text != nullptr ? *text : std::string();
}

/// A dictionary of today's form; nullopt for anything else.
std::optional<AccountEntry> entryOfDictionary(const PropertyList& element) {
    auto type = textIn(element, kAccountTypeKey), path = textIn(element, kAccountPathKey);
    if (type.empty() || path.empty()) return std::nullopt;
    return AccountEntry{std::move(type), std::move(path), element};
}

/// The older form.  A dictionary that names its own class is an account by itself, whatever stands before it.
std::optional<AccountEntry> entryOfPair(const PropertyList& first, const PropertyList& second) {
    const auto* const type = first.get<std::string>();
    if (type == nullptr || type->empty() || entryOfDictionary(second)) return std::nullopt;
    if (const auto* const path = second.get<std::string>(); path != nullptr && !path->empty())
        return accountEntry(*type, *path, PropertyList());
    const auto path = textIn(second, kAccountPathKey);
    if (path.empty()) return std::nullopt;
    return accountEntry(*type, path, second);
}

}  // namespace

PropertyList AccountEntry::info() const {
    auto info = element;
    info.remove(kAccountPathKey);
    info.remove(kAccountTypeKey);
    return info;
}

AccountEntry accountEntry(std::string_view type, std::string_view path, PropertyList info) {
    info.set(kAccountPathKey, path);
    info.set(kAccountTypeKey, type);
    info.remove(kSessionPasswordKey);
    return {std::string(type), std::string(path), std::move(info)};
}

std::vector<AccountEntry> readAccountEntries(const PropertyList& registry) {
    std::vector<AccountEntry> entries;
    const auto& elements = registry.array();
    for (std::size_t i = 0; i < elements.size(); ++i) {
        if (auto entry = entryOfDictionary(elements[i])) {
            entries.push_back(std::move(*entry));
        } else if (auto pair = entryOfPair(elements[i], registry[i + 1])) {
            entries.push_back(std::move(*pair));
            ++i;
        } else {
            entries.push_back({{}, {}, elements[i]});
        }
    }
    return entries;
}

PropertyList toPropertyList(const std::vector<AccountEntry>& entries) {
    PropertyList::Array elements;
    for (const auto& entry : entries) elements.push_back(entry.element);
    return elements;
}

}  // namespace lorvale
