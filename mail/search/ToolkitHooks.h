#pragma once
#include <functional>
#include <string>
#include <string_view>

#include "lorvale/toolkit/storage/exception.h"

namespace lorvale {

/// The name of the exception that a failure of the toolkit becomes while an index is opened.
inline constexpr std::string_view MessageZESTException = "MessageZESTException";

/// Points the toolkit's hooks at the mail side, once: its mutexes (MboxMutex), its memory, its exceptions.
/// Called before an index is made, by the thread that turns indexing on or searches; no other thread may make
/// objects of the toolkit meanwhile.
void installToolkitHooks();

/// While it lives a failure of the toolkit on this thread is a NamedException with that name and the reason
/// "[code] location: text"; elsewhere, and at other times, an IAException.
class BrindleExceptionBridge {
public:
    BrindleExceptionBridge();
    ~BrindleExceptionBridge();
    BrindleExceptionBridge(const BrindleExceptionBridge&) = delete;
    BrindleExceptionBridge& operator=(const BrindleExceptionBridge&) = delete;

private:
    const bool _before;
};

/// Logs an exception of the toolkit in the four lines that a search writes.
void logBrindleException(const brindle::IAException& exception);

}  // namespace lorvale
