#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "lorvale/message/headers.h"
#include "lorvale/platform/mutex.h"

namespace lorvale {

namespace {

constexpr auto kCachedKeys = std::to_array<std::string_view>({"from", "subject", "date"});
constexpr auto kUsualKeys =
    std::to_array<std::string_view>({"from", "subject", "date", "From", "Subject", "Date"});

struct SharedKeys {
    Mutex mutex;
    std::set<std::string, std::less<>> names LORVALE_GUARDED_BY(mutex);
};

}  // namespace

std::string_view sharedHeaderKey(std::string_view name) {
    const auto* const usual = std::ranges::find(kUsualKeys, name);
    if (usual != kUsualKeys.end()) return *usual;
    static auto& shared = *new SharedKeys;  // never freed: messages may outlive the end of main
    const MutexLock lock(shared.mutex);
    const auto found = shared.names.find(name);
    return found != shared.names.end() ? *found : *shared.names.emplace(name).first;
}

void CachedHeaders::set(std::string_view key, HeaderValue value) {
    const auto found = std::ranges::find(_entries, key, &Entry::key);
    if (found != _entries.end()) {
        found->value = std::move(value);
    } else {
        _entries.push_back({sharedHeaderKey(key), std::move(value)});
    }
}

const HeaderValue* CachedHeaders::find(std::string_view key) const {
    const auto found = std::ranges::find(_entries, key, &Entry::key);
    return found != _entries.end() ? &found->value : nullptr;
}

std::string CachedHeaders::textForKey(std::string_view key) const {
    const auto* const value = find(key);
    const auto* const text = value != nullptr ? std::get_if<std::string>(value) : nullptr;
    return text != nullptr ? *text : std::string();
}

std::span<const std::string_view> MessageHeaders::cachedKeys() {
    return kCachedKeys;
}

}  // namespace lorvale
