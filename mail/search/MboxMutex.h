#pragma once
#include <memory>

#include "lorvale/platform/mutex.h"
#include "lorvale/toolkit/storage/mutex.h"

namespace lorvale {

/// What the toolkit locks its objects with in a program that handles mail.  All of them are one recursive lock
/// of the process: any two operations on any two indexes exclude each other, so that no order of locks can be
/// wrong, and a search that holds it sees nothing change.
class MboxMutex : public brindle::IAMutex, public brindle::IAStruct {
public:
    void Lock() override LORVALE_NO_THREAD_SAFETY_ANALYSIS { shared().lock(); }
    void Unlock() override LORVALE_NO_THREAD_SAFETY_ANALYSIS { shared().unlock(); }

    static RecursiveMutex& shared();
};

std::unique_ptr<brindle::IAMutex> createMboxMutex();

}  // namespace lorvale
