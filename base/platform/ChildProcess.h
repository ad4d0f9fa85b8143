#pragma once
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/files/Descriptor.h"
#include "lorvale/platform/subprocess.h"
#include "lorvale/values/data.h"

/// Starting programs, and moving bytes in and out of them.

namespace lorvale {

/// Both ends above the standard descriptors and closed in every child; not open when there are none left.
struct Pipe {
    Pipe();
    bool isOpen() const { return read && write; }

    Descriptor read, write;
};

/// While it lives, a write by this thread to what nobody reads fails and sends no signal.
class WithoutPipeSignal {
public:
    WithoutPipeSignal();
    ~WithoutPipeSignal();
    WithoutPipeSignal(const WithoutPipeSignal&) = delete;
    WithoutPipeSignal& operator=(const WithoutPipeSignal&) = delete;

private:
    bool _wasPending = false, _wasBlocked = false;
};

/// A program at work.  When this goes before the program has ended, a thread of its own waits for that.
class ChildProcess {
public:
    struct Setup {
        std::string path;
        std::vector<std::string> arguments;  ///< behind the program's name
        int input = -1;                      ///< its standard descriptors, borrowed; -1: /dev/null
        int output = -1, error = -1;         ///< -1: the host's
        bool hasOwnGroup = false;            ///< a process group of its own
        std::optional<std::string> terminal =
            std::nullopt;  ///< instead of all that: the controlling one of a new session
    };
    using Clock = std::chrono::steady_clock;

    /// Nullopt with the system's reason in errno.
    static std::optional<ChildProcess> launch(const Setup& setup);

    ChildProcess(ChildProcess&& other) noexcept : _pid(std::exchange(other._pid, 0)) {}
    ChildProcess& operator=(ChildProcess&& other) noexcept {
        std::swap(_pid, other._pid);
        return *this;
    }
    ~ChildProcess();

    /// 0 once it was found to have ended: the number may be another's from then on.
    pid_t pid() const { return _pid; }
    bool isRunning();
    /// False when it still runs at the deadline.
    bool waitUntil(Clock::time_point deadline);
    void askToEnd() const;
    void kill() const;

private:
    explicit ChildProcess(pid_t pid) : _pid(pid) {}

    pid_t _pid;
};

enum class Exchange { done, inputNotRead, limitPassed };

/// Writes all of the input and closes that, while it reads the output up to its end: with one behind the other
/// a program that answers before it has read all would wait for us and we for it.  A descriptor that is not
/// open counts as done.  Where the input is not read to its end, the output is, all the same.
Exchange exchangeBytes(Descriptor input, std::string_view bytes, Descriptor output, ByteBuffer* received,
                       const TaskLimits& limits = {});

}  // namespace lorvale
