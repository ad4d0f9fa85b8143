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

bool OpenStores::wouldWaitForMe(std::string_view path) const {
    for (;;) {
        const auto opening = _opening.find(path);
        if (opening == _opening.end()) return false;
        if (opening->second == std::this_thread::get_id()) return true;
        const auto waiting = _waiting.find(opening->second);
        if (waiting == _waiting.end()) return false;
        path = waiting->second;
    }
}

OpenStores::Turn::Turn(OpenStores& table,
                       const std::string& path) LORVALE_NO_THREAD_SAFETY_ANALYSIS  // which does not know a wait
    : _table(table),
      _path(path) {
    const auto me = std::this_thread::get_id();
    std::unique_lock lock(_table._storeCacheLock.native());
    if (_table.wouldWaitForMe(_path)) return;
    _table._waiting.emplace(me, _path);
    while (_table._opening.contains(_path)) _table._opened.wait(lock);
    _table._waiting.erase(me);
    _isHeld = _table._opening.emplace(_path, me).second;
}

OpenStores::Turn::~Turn() {
    if (!_isHeld) return;
    {
        const MutexLock lock(_table._storeCacheLock);
        _table._opening.erase(_path);
    }
    _table._opened.notify_all();
}

}  // namespace lorvale
