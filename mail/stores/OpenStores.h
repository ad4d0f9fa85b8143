#pragma once
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/platform/mutex.h"

namespace lorvale {

class MessageStore;

/// One name for all the paths that lead to a mailbox: absolute, standardised, symbolic links resolved as far as
/// the path exists.
std::string standardStorePath(std::string_view path);

/// The stores of this process that are open, by their standard path.  Keeps none of them alive.  Any thread.
class OpenStores {
public:
    static OpenStores& table();

    void add(const std::string& path, const std::shared_ptr<MessageStore>& store);
    /// A share of the store, taken under the lock, so that it cannot go away before the caller has it.  Null
    /// for one that is closed or closing.
    std::shared_ptr<MessageStore> storeAt(const std::string& path);
    /// Only if it is this store that is open there.
    void remove(const std::string& path, const MessageStore& store);

private:
    struct Entry {
        const MessageStore* identity;  // never followed: a dying store has no share left to compare
        std::weak_ptr<MessageStore> store;
    };

    Mutex _storeCacheLock;  // no other lock is taken under it
    std::map<std::string, Entry> _stores LORVALE_GUARDED_BY(_storeCacheLock);
};

}  // namespace lorvale
