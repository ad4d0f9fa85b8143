#pragma once
#include <memory>
#include <utility>

#include "lorvale/platform/mutex.h"

namespace lorvale {

/// The one function by which a higher folder makes objects of a class that this folder knows as an abstract
/// one, and names as `Class::Maker`.  Any thread.
template <class Class>
class RegisteredMaker {
public:
    /// Empty: none.  Answers the one before.
    static typename Class::Maker set(typename Class::Maker make) {
        auto& holder = instance();
        const MutexLock lock(holder._mutex);
        return std::exchange(holder._make, std::move(make));
    }
    /// Null when none is registered.
    template <class... Arguments>
    static std::shared_ptr<Class> make(Arguments&&... arguments) {
        const auto make = get();
        return make ? make(std::forward<Arguments>(arguments)...) : nullptr;
    }

private:
    static RegisteredMaker& instance() {
        static auto& holder = *new RegisteredMaker;  // stores may outlive the end of main
        return holder;
    }
    /// A copy, to be called without the lock.
    static typename Class::Maker get() {
        auto& holder = instance();
        const MutexLock lock(holder._mutex);
        return holder._make;
    }

    Mutex _mutex;
    typename Class::Maker _make LORVALE_GUARDED_BY(_mutex);
};

}  // namespace lorvale
