#pragma once
#include <utility>

#include "lorvale/platform/mutex.h"

namespace lorvale {

/// The one function by which a higher folder makes what this one holds by its abstract class.  Any thread.
template <class Maker>
class RegisteredMaker {
public:
    void set(Maker make) {
        const MutexLock lock(_mutex);
        _make = std::move(make);
    }
    /// A copy, to be called without the lock; empty when none is registered.
    Maker get() const {
        const MutexLock lock(_mutex);
        return _make;
    }

private:
    mutable Mutex _mutex;
    Maker _make LORVALE_GUARDED_BY(_mutex);
};

}  // namespace lorvale
