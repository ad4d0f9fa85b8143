#include "mail/stores/OpenStores.h"

#include "lorvale/store/message_store.h"

namespace lorvale {

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
    const MutexLock lock(_storeCacheLock);
    const auto found = _stores.find(path);
    return found != _stores.end() ? found->second.store.lock() : nullptr;
}

void OpenStores::remove(const std::string& path, const MessageStore& store) {
    const MutexLock lock(_storeCacheLock);
    const auto found = _stores.find(path);
    if (found != _stores.end() && found->second.identity == &store) _stores.erase(found);
}

}  // namespace lorvale
