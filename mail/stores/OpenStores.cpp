#include "mail/stores/OpenStores.h"

#include <filesystem>
#include <system_error>

#include "lorvale/platform/paths.h"
#include "lorvale/store/message_store.h"

namespace lorvale {

std::string standardStorePath(std::string_view path) {
    const auto standard = standardizePath(path);
    std::error_code error;
    const auto resolved = std::filesystem::weakly_canonical(std::filesystem::absolute(standard, error), error);
    return error ? standard : resolved.string();
}

OpenStores& OpenStores::table() {
    // Never destroyed: a store that lives until the end of the process still takes itself out.
    static auto& table = *new OpenStores;
    return table;
}

void OpenStores::add(const std::string& path, const std::shared_ptr<MessageStore>& store) {
    const MutexLock lock(_storeCacheLock);
    _stores.insert_or_assign(path, Entry{store.get(), store});
}

std::shared_ptr<MessageStore> OpenStores::storeAt(const std::string& path) {
    std::shared_ptr<MessageStore> store;
    {
        const MutexLock lock(_storeCacheLock);
        const auto found = _stores.find(path);
        if (found != _stores.end()) store = found->second.store.lock();
    }
    return store && !store->isClosed() ? store : nullptr;
}

void OpenStores::remove(const std::string& path, const MessageStore& store) {
    const MutexLock lock(_storeCacheLock);
    const auto found = _stores.find(path);
    if (found != _stores.end() && found->second.identity == &store) _stores.erase(found);
}

}  // namespace lorvale
