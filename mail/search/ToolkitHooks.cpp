#include "mail/search/ToolkitHooks.h"

#include <cstdlib>
#include <mutex>

#include "lorvale/defaults.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/toolkit/storage/memory.h"
#include "mail/search/MboxMutex.h"

namespace lorvale {

namespace {

bool shouldUseMalloc = false;             // written before the hooks are
brindle::IAExceptionHookProc hookBefore;  // the host's; null for none
thread_local bool converts = false;

/// Zero-filled unless the host is sure of itself: what reads memory it has not written then finds nothing
/// there, on every machine.
void* allocateMemory(std::size_t size) {
    return shouldUseMalloc ? std::malloc(size) : std::calloc(1, size);
}

void deallocateMemory(void* block) {
    std::free(block);
}

std::string codeText(std::int32_t code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(static_cast<std::uint32_t>(code) >> shift & 0xFF);
    return text;
}

void BrindleExceptionHandler(const char* message, const char* location, std::int32_t code) {
    if (converts)
        throw NamedException(MessageZESTException,
                             formatText("[%@] %@: %@", codeText(code), location, message));
    if (hookBefore != nullptr) hookBefore(message, location, code);
}

}  // namespace

void installToolkitHooks() {
    static std::once_flag once;
    std::call_once(once, [] {
        shouldUseMalloc = Defaults::sharedInstance().boolForKey("UseMallocForBrindleAllocation");
        // What was allocated before came from malloc() and is freed by free(), too.
        brindle::IAAllocationFunc = allocateMemory;
        brindle::IADeAllocationFunc = deallocateMemory;
        brindle::IANewMutex = createMboxMutex;
        hookBefore = brindle::IAGetExceptionHookProc();
        brindle::IASetExceptionHookProc(BrindleExceptionHandler);
    });
}

BrindleExceptionBridge::BrindleExceptionBridge() : _before(std::exchange(converts, true)) {}

BrindleExceptionBridge::~BrindleExceptionBridge() {
    converts = _before;
}

void logBrindleException(const brindle::IAException& exception) {
    log("Caught a Brindle exception");
    log("    Exception code: %x", exception.GetCode());
    log("    Exception reason: %s", exception.What());
    log("    Exception location: %s", exception.GetLocation());
}

}  // namespace lorvale
