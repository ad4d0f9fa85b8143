#pragma once
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

#include "lorvale/export.h"

namespace lorvale {

/// The calls, timers and descriptors that one thread serves.  Each thread has one, made on demand.  Nothing
/// happens until the thread runs it, or until a host's own loop polls descriptor() and calls dispatch().
///
/// perform(), performAfterDelay(), performWhenIdle(), cancel() and stop() may be called by any thread; the rest
/// belongs to the loop's thread.  Callbacks run there, under no lock, and may use the loop, also to run it
/// inside.  An exception that leaves a callback is logged and goes no further.  When its thread ends, a loop
/// drops what is left and takes no more.
class LORVALE_EXPORT RunLoop : public std::enable_shared_from_this<RunLoop> {
public:
    using Callback = std::function<void()>;
    using Clock = std::chrono::steady_clock;
    /// A pending call; 0 is none.  Numbers are not used again.
    using CallID = std::uint64_t;

    /// The calling thread's loop.
    [[nodiscard]] static std::shared_ptr<RunLoop> current();
    /// The loop of the main thread: the process's first one, unless a host names another's.
    [[nodiscard]] static std::shared_ptr<RunLoop> main();
    static void setMain(std::shared_ptr<RunLoop> loop);  ///< null: the first thread again
    /// Whether the calling thread's loop is that one.  Makes none.
    [[nodiscard]] static bool isMainThread();

    ~RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// Calls made by one thread run in their order.  0, and nothing is kept, when the loop's thread has ended.
    CallID perform(Callback callback);
    CallID performAfterDelay(Callback callback, Clock::duration delay);
    /// Runs once when nothing else is ready, one idle call at a time.
    CallID performWhenIdle(Callback callback);
    /// True when the call was still pending; it will not run then.
    bool cancel(CallID call);

    /// A watch on a descriptor ends with this token (or with the loop).  Belongs to the loop's thread; may be
    /// destroyed inside any callback.
    class LORVALE_EXPORT Source {
    public:
        Source() = default;
        Source(Source&&) noexcept;
        Source& operator=(Source&&) noexcept;
        ~Source();
        void reset();

    private:
        friend class RunLoop;
        std::weak_ptr<RunLoop> _loop;
        std::uint64_t _number = 0;
    };
    struct Ready {
        bool readable = false;  ///< also at the end of the stream or after a failure, so that a read tells
        bool writable = false;
    };
    /// Calls back each time the loop turns, in whatever run that is, while the descriptor (borrowed; keep it
    /// open as long as the token) is ready for what is wanted.  One watch a descriptor.  Throws
    /// InvalidArgumentException for one that cannot be watched, such as a regular file.
    [[nodiscard]] Source watch(int descriptor, Ready wanted, std::function<void(Ready)> callback);

    /// Serves until stop(), or until the time has passed.  False when it was stopped.  With nothing to wait for
    /// it still waits: another thread may have something to say.
    bool runFor(Clock::duration duration);
    bool runUntil(Clock::time_point deadline);
    void run();  ///< until stop()
    /// Waits until something is ready or the deadline has passed, and serves that.  True when a callback ran.
    bool runOnce(Clock::time_point deadline);
    /// Ends the innermost run; called while none runs, it ends the next one at once.
    void stop();

    /// Serves what is ready without waiting.  True when a callback ran.
    bool dispatch();
    /// Becomes readable (poll, select, epoll) when dispatch() has something to do.  Owned by the loop.
    int descriptor() const;

private:
    friend struct RunLoopOfThread;
    class Implementation;
    RunLoop();

    std::unique_ptr<Implementation> _implementation;
};

}  // namespace lorvale
