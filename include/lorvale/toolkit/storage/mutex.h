#pragma once
#include <memory>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

/// A lock that the host provides.  It must be recursive: a storage, a tree and an index lock theirs again in
/// nested calls on one thread.  Order of locking: index, tree, storage, stream.
class LORVALE_EXPORT LORVALE_CAPABILITY("mutex") IAMutex {
public:
    virtual ~IAMutex();
    virtual void Lock() LORVALE_ACQUIRE() = 0;
    virtual void Unlock() LORVALE_RELEASE() = 0;
};

/// The mutex of a program with one thread: both operations do nothing.
class LORVALE_EXPORT IADefaultMutex : public IAMutex, public IAStruct {
public:
    void Lock() override LORVALE_NO_THREAD_SAFETY_ANALYSIS;
    void Unlock() override LORVALE_NO_THREAD_SAFETY_ANALYSIS;
};

LORVALE_EXPORT std::unique_ptr<IAMutex> IADefaultMutexConstructor();

/// Makes the mutex of every toolkit object.  A host with several threads replaces it before it makes any.
extern LORVALE_EXPORT std::unique_ptr<IAMutex> (*IANewMutex)();

/// Holds a mutex for a scope.
class LORVALE_SCOPED_CAPABILITY IALock {
public:
    explicit IALock(IAMutex* toLock) LORVALE_ACQUIRE(toLock) : mutex(toLock) { mutex->Lock(); }
    IALock(const IALock&) = delete;
    IALock& operator=(const IALock&) = delete;
    ~IALock() LORVALE_RELEASE() { mutex->Unlock(); }

private:
    IAMutex* const mutex;
};

}  // namespace brindle
