#pragma once
#include <condition_variable>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

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

    /// The right to open the store of a path, which one thread has at a time: another one that opened it too
    /// would meet the first one's lock file, and then have a store of its own for the same mail.
    class Turn {
    public:
        /// Waits for the thread that is opening there.  Does not wait for the thread itself, neither for an
        /// opening that it is in the middle of nor for one that waits in turn for such an opening.
        Turn(OpenStores& table, const std::string& path);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        OpenStores& _table;
        const std::string _path;
        bool _isHeld = false;
    };

private:
    struct Entry {
        const MessageStore* identity;  // never followed: a dying store has no share left to compare
        std::weak_ptr<MessageStore> store;
    };

    bool wouldWaitForMe(std::string_view path) const LORVALE_REQUIRES(_storeCacheLock);

    Mutex _storeCacheLock;  // no other lock is taken under it
    std::map<std::string, Entry, std::less<>> _stores LORVALE_GUARDED_BY(_storeCacheLock);
    std::map<std::string, std::thread::id, std::less<>> _opening LORVALE_GUARDED_BY(_storeCacheLock);
    std::map<std::thread::id, std::string> _waiting LORVALE_GUARDED_BY(_storeCacheLock);  // for which opening
    std::condition_variable _opened;
};

}  // namespace lorvale
