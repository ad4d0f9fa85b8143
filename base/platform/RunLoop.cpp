#include "lorvale/platform/run_loop.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <utility>

#include "base/platform/RunLoopImplementation.h"

namespace lorvale {

// ---- Whose loop is whose.

namespace {

using Clock = RunLoop::Clock;

Clock::time_point after(Clock::duration delay) {
    const auto now = Clock::now();
    return delay > Clock::time_point::max() - now ? Clock::time_point::max() : now + delay;
}

// Trivial, so that they can be read to the very end of the thread.
thread_local bool threadIsEnding = false;
thread_local const RunLoop* loopOfThread = nullptr;  // once it is made

std::atomic<const RunLoop*> loopOfFirstThread{nullptr};  // the same; any thread may ask for it

bool isFirstThread() {
    return ::syscall(SYS_gettid) == ::getpid();
}

struct MainLoop {
    Mutex mutex;
    std::shared_ptr<RunLoop> named LORVALE_GUARDED_BY(mutex);
};

MainLoop& mainLoop() {
    static MainLoop& instance = *new MainLoop;  // never destroyed: late threads may still post to it
    return instance;
}

}  // namespace

/// Holds a thread's loop, and closes it when the thread ends.
struct RunLoopOfThread {
    RunLoopOfThread() : loop(isFirstThread() ? first() : make()) { loopOfThread = loop.get(); }
    ~RunLoopOfThread() {
        threadIsEnding = true;
        loopOfThread = nullptr;
        loop->_implementation->close();
    }
    RunLoopOfThread(const RunLoopOfThread&) = delete;
    RunLoopOfThread& operator=(const RunLoopOfThread&) = delete;

    static std::shared_ptr<RunLoop> make() { return std::shared_ptr<RunLoop>(new RunLoop); }
    /// The loop of the process's first thread, which others may ask for before that thread does.
    static const std::shared_ptr<RunLoop>& first() {
        static const auto& loop = *new std::shared_ptr<RunLoop>(make());
        loopOfFirstThread = loop.get();
        return loop;
    }
    static std::shared_ptr<RunLoop> closed() {
        auto loop = make();
        loop->_implementation->close();
        return loop;
    }

    const std::shared_ptr<RunLoop> loop;
};

std::shared_ptr<RunLoop> RunLoop::current() {
    // A destructor that runs late in its thread gets a loop that takes nothing.
    if (threadIsEnding) return RunLoopOfThread::closed();
    thread_local const RunLoopOfThread mine;
    return mine.loop;
}

std::shared_ptr<RunLoop> RunLoop::main() {
    auto& shared = mainLoop();
    const MutexLock lock(shared.mutex);
    return shared.named != nullptr ? shared.named : RunLoopOfThread::first();
}

void RunLoop::setMain(std::shared_ptr<RunLoop> loop) {
    auto& shared = mainLoop();
    const MutexLock lock(shared.mutex);
    shared.named = std::move(loop);
}

bool RunLoop::isMainThread() {
    auto& shared = mainLoop();
    const MutexLock lock(shared.mutex);
    if (shared.named == nullptr) return isFirstThread();
    return shared.named.get() == (isFirstThread() ? loopOfFirstThread.load() : loopOfThread);
}

RunLoop::RunLoop() : _implementation(std::make_unique<Implementation>()) {}
RunLoop::~RunLoop() = default;

RunLoop::CallID RunLoop::perform(Callback callback) {
    return _implementation->add(std::move(callback), false);
}

RunLoop::CallID RunLoop::performAfterDelay(Callback callback, Clock::duration delay) {
    return _implementation->addTimer(std::move(callback), after(delay));
}

RunLoop::CallID RunLoop::performWhenIdle(Callback callback) {
    return _implementation->add(std::move(callback), true);
}

bool RunLoop::cancel(CallID call) {
    return _implementation->cancel(call);
}

RunLoop::Source RunLoop::watch(int descriptor, Ready wanted, std::function<void(Ready)> callback) {
    Source source;
    source._number = _implementation->addSource(descriptor, wanted, std::move(callback));
    source._loop = weak_from_this();
    return source;
}

bool RunLoop::runFor(Clock::duration duration) {
    return runUntil(after(duration));
}

bool RunLoop::runUntil(Clock::time_point deadline) {
    do {
        if (_implementation->takeStop()) return false;
        _implementation->turn(deadline);
        if (_implementation->takeStop()) return false;
    } while (Clock::now() < deadline);
    return true;
}

void RunLoop::run() {
    runUntil(Clock::time_point::max());
}

bool RunLoop::runOnce(Clock::time_point deadline) {
    do {
        if (_implementation->takeStop()) return false;
        if (_implementation->turn(deadline)) return true;
    } while (Clock::now() < deadline);
    return false;
}

void RunLoop::stop() {
    _implementation->requestStop();
}

bool RunLoop::dispatch() {
    return _implementation->turn(Clock::time_point::min());
}

int RunLoop::descriptor() const {
    return _implementation->descriptor();
}

RunLoop::Source::Source(Source&& other) noexcept
    : _loop(std::move(other._loop)), _number(std::exchange(other._number, 0)) {}

RunLoop::Source& RunLoop::Source::operator=(Source&& other) noexcept {
    if (this == &other) return *this;
    reset();
    _loop = std::move(other._loop);
    _number = std::exchange(other._number, 0);
    return *this;
}

RunLoop::Source::~Source() {
    reset();
}

void RunLoop::Source::reset() {
    const auto number = std::exchange(_number, 0);
    if (const auto loop = _loop.lock(); loop != nullptr && number != 0)
        loop->_implementation->removeSource(number);
}

}  // namespace lorvale
