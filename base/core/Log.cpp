#include "lorvale/platform/log.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <utility>

#include "lorvale/platform/mutex.h"

namespace lorvale {

namespace {

void writeToStandardError(std::string_view line) {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
}

struct Sink {
    Mutex calls;  // held over each call, so that lines do not mix; taken before the other, never after
    Mutex mutex;
    std::shared_ptr<const LogSink> function LORVALE_GUARDED_BY(mutex);  // null: standard error
};

// Never destroyed: a thread that outlives main() may still log.
Sink& sink() {
    static Sink& instance = *new Sink;
    return instance;
}

thread_local bool isInSink = false;

/// Marks the thread as being in the sink.
class InSink {
public:
    InSink() { isInSink = true; }
    ~InSink() { isInSink = false; }
    InSink(const InSink&) = delete;
    InSink& operator=(const InSink&) = delete;
};

std::shared_ptr<const LogSink> exchangeSink(std::shared_ptr<const LogSink> function) {
    auto& shared = sink();
    const MutexLock lock(shared.mutex);
    return std::exchange(shared.function, std::move(function));
}

std::atomic<bool> debugging{false};

}  // namespace

LogSink setLogSink(LogSink function) {
    auto fresh = function ? std::make_shared<const LogSink>(std::move(function)) : nullptr;
    std::shared_ptr<const LogSink> old;
    if (isInSink) {
        old = exchangeSink(std::move(fresh));
    } else {
        const MutexLock nobodyIsInIt(sink().calls);
        old = exchangeSink(std::move(fresh));
    }
    return old == nullptr ? LogSink(writeToStandardError) : *old;
}

void setDebugLogging(bool on) {
    debugging = on;
}
bool debugLogging() {
    return debugging;
}

void logLine(std::string_view line) {
    auto& shared = sink();
    if (isInSink) return writeToStandardError(line);  // what the sink itself has to say cannot go to it
    const MutexLock oneAtATime(shared.calls);
    std::shared_ptr<const LogSink> function;
    {
        const MutexLock lock(shared.mutex);
        function = shared.function;
    }
    const InSink mark;
    function == nullptr ? writeToStandardError(line) : (*function)(line);
}

}  // namespace lorvale
