#include "mail/search/MboxMutex.h"

namespace lorvale {

RecursiveMutex& MboxMutex::shared() {
    static auto& lock = *new RecursiveMutex;  // indexes may outlive the end of main
    return lock;
}

std::unique_ptr<brindle::IAMutex> createMboxMutex() {
    return std::make_unique<MboxMutex>();
}

}  // namespace lorvale
