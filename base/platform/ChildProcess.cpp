#include "base/platform/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <thread>

namespace lorvale {

namespace {

constexpr int kFirstOther = 3;  // behind the standard descriptors
constexpr std::size_t kBlock = 64 * 1024;

/// The same file under a number above the standard descriptors, which a host may have closed: a child's setup
/// would otherwise overwrite one end with another.
Descriptor movedUp(int number) {
    Descriptor original(number);
    if (number < 0 || number >= kFirstOther) return original;
    return Descriptor(::fcntl(number, F_DUPFD_CLOEXEC, kFirstOther));
}

/// What posix_spawn() is to do in the child.
class SpawnPlan {
public:
    SpawnPlan() {
        ::posix_spawn_file_actions_init(&_actions);
        ::posix_spawnattr_init(&_attributes);
    }
    ~SpawnPlan() {
        ::posix_spawn_file_actions_destroy(&_actions);
        ::posix_spawnattr_destroy(&_attributes);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    void use(int number, int as) { ::posix_spawn_file_actions_adddup2(&_actions, number, as); }
    void open(const char* path, int flags, int as) {
        ::posix_spawn_file_actions_addopen(&_actions, as, path, flags, 0);
    }
    void closeOthers() { ::posix_spawn_file_actions_addclosefrom_np(&_actions, kFirstOther); }

    int spawn(pid_t& pid, const std::string& path, char* const arguments[], short flags) {
        sigset_t none, all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        ::posix_spawnattr_setsigmask(&_attributes, &none);
        ::posix_spawnattr_setsigdefault(&_attributes, &all);
        ::posix_spawnattr_setflags(&_attributes,
                                   static_cast<short>(flags | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
        return ::posix_spawn(&pid, path.c_str(), &_actions, &_attributes, arguments, environ);
    }

private:
    posix_spawn_file_actions_t _actions;
    posix_spawnattr_t _attributes;
};

void attach(SpawnPlan& plan, const ChildProcess::Setup& setup) {
    if (setup.terminal) {
        // The first terminal that the leader of a new session opens is its controlling one.
        plan.open(setup.terminal->c_str(), O_RDWR, STDIN_FILENO);
        plan.use(STDIN_FILENO, STDOUT_FILENO);
    } else if (setup.input >= 0) {
        plan.use(setup.input, STDIN_FILENO);
    } else {
        plan.open("/dev/null", O_RDONLY, STDIN_FILENO);
    }
    if (setup.output >= 0) plan.use(setup.output, STDOUT_FILENO);
    if (setup.error >= 0) plan.use(setup.error, STDERR_FILENO);
    plan.closeOthers();
}

bool isAgain(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

void makeNonBlocking(const Descriptor& descriptor) {
    if (!descriptor) return;
    ::fcntl(descriptor.get(), F_SETFL, ::fcntl(descriptor.get(), F_GETFL) | O_NONBLOCK);
}

/// Writes what the pipe takes; closes it behind the last byte, or when nobody reads.  False in that case.
bool writeSome(Descriptor& input, std::string_view& bytes) {
    const auto written = ::write(input.get(), bytes.data(), bytes.size());
    if (written < 0 && isAgain(errno)) return true;
    if (written >= 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    if (written < 0 || bytes.empty()) input.reset();
    return written >= 0;
}

void readSome(Descriptor& output, ByteBuffer* received) {
    std::array<char, kBlock> block;
    const auto count = ::read(output.get(), block.data(), block.size());
    if (count < 0 && isAgain(errno)) return;
    if (count <= 0) return output.reset();
    if (received != nullptr) received->append(std::string_view(block.data(), static_cast<std::size_t>(count)));
}

/// For poll().
int millisecondsTo(ChildProcess::Clock::time_point deadline) {
    if (deadline == ChildProcess::Clock::time_point::max()) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - ChildProcess::Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, std::numeric_limits<int>::max()));
}

}  // namespace

Pipe::Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return;
    read = movedUp(ends[0]);
    write = movedUp(ends[1]);
}

WithoutPipeSignal::WithoutPipeSignal() {
    sigset_t pipe, before, pending;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    ::sigpending(&pending);
    _wasPending = ::sigismember(&pending, SIGPIPE) == 1;
    ::pthread_sigmask(SIG_BLOCK, &pipe, &before);
    _wasBlocked = ::sigismember(&before, SIGPIPE) == 1;
}

WithoutPipeSignal::~WithoutPipeSignal() {
    sigset_t pipe;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    const timespec now{};
    if (!_wasPending) ::sigtimedwait(&pipe, nullptr, &now);  // the one that a write of ours has sent
    if (!_wasBlocked) ::pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

std::optional<ChildProcess> ChildProcess::launch(const Setup& setup) {
    std::vector<std::string> words = {setup.path.substr(setup.path.rfind('/') + 1)};
    words.insert(words.end(), setup.arguments.begin(), setup.arguments.end());
    std::vector<char*> arguments(words.size() + 1, nullptr);
    std::ranges::transform(words, arguments.begin(), [](auto& word) { return word.data(); });
    SpawnPlan plan;
    attach(plan, setup);
    const auto flags = setup.terminal ? POSIX_SPAWN_SETSID : setup.hasOwnGroup ? POSIX_SPAWN_SETPGROUP : 0;
    pid_t pid = 0;
    errno = plan.spawn(pid, setup.path, arguments.data(), static_cast<short>(flags));
    return errno == 0 ? std::optional(ChildProcess(pid)) : std::nullopt;
}

ChildProcess::~ChildProcess() {
    if (!isRunning()) return;
    std::thread([pid = _pid] { ::waitpid(pid, nullptr, 0); }).detach();
}

bool ChildProcess::isRunning() {
    if (_pid != 0 && ::waitpid(_pid, nullptr, WNOHANG) != 0) _pid = 0;
    return _pid != 0;
}

bool ChildProcess::waitUntil(Clock::time_point deadline) {
    if (!isRunning()) return true;
    // The C library's name for it has no C linkage before version 2.37.
    const Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, _pid, 0)));
    for (;;) {
        pollfd end{process.get(), POLLIN, 0};
        ::poll(&end, 1, millisecondsTo(deadline));
        if (!isRunning()) return true;
        if (Clock::now() >= deadline) return false;
    }
}

void ChildProcess::askToEnd() const {
    if (_pid != 0) ::kill(_pid, SIGTERM);
}

void ChildProcess::kill() const {
    if (_pid != 0) ::kill(_pid, SIGKILL);
}

Exchange exchangeBytes(Descriptor input, std::string_view bytes, Descriptor output, ByteBuffer* received,
                       const TaskLimits& limits) {
    const WithoutPipeSignal guard;
    makeNonBlocking(input);
    makeNonBlocking(output);
    if (bytes.empty()) input.reset();
    auto result = Exchange::done;
    const auto before = received != nullptr ? received->size() : 0;
    while (input || output) {
        pollfd ends[] = {{input.get(), POLLOUT, 0}, {output.get(), POLLIN, 0}};
        if (::poll(ends, 2, millisecondsTo(limits.deadline)) < 0) continue;  // a signal
        if (ends[0].revents != 0 && !writeSome(input, bytes)) result = Exchange::inputNotRead;
        if (ends[1].revents != 0) readSome(output, received);
        const bool isTooMuch = received != nullptr && received->size() - before > limits.mostOutput;
        if (isTooMuch || ChildProcess::Clock::now() >= limits.deadline) return Exchange::limitPassed;
    }
    return result;
}

}  // namespace lorvale
