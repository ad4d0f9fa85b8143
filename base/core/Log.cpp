#include "lorvale/platform/log.h"

#include <atomic>
#include <cstdio>
#include <utility>

#include "lorvale/platform/mutex.h"

namespace lorvale {

namespace {

void writeToStandardError(std::string_view line) {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
}

struct Sink {
    Mutex mutex;
    LogSink function LORVALE_GUARDED_BY(mutex) = writeToStandardError;
};

// Never destroyed: a thread that outlives main() may still log.
Sink& sink() {
    static Sink& instance = *new Sink;
    return instance;
}

std::atomic<bool> debugging{false};

}  // namespace

LogSink setLogSink(LogSink function) {
    auto& shared = sink();
    const MutexLock lock(shared.mutex);
    return std::exchange(shared.function, function ? std::move(function) : LogSink(writeToStandardError));
}

void setDebugLogging(bool on) {
    debugging = on;
}
bool debugLogging() {
    return debugging;
}

void logLine(std::string_view line) {
    auto& shared = sink();
    const MutexLock lock(shared.mutex);  // held over the write, so that lines do not mix
    shared.function(line);
}

}  // namespace lorvale
