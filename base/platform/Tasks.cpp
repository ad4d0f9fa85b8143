/// Running programs to their end.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/platform/ChildProcess.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/subprocess.h"

namespace lorvale {

namespace {

constexpr int kWaits = 3;
constexpr std::chrono::seconds kWait{1};
constexpr std::chrono::milliseconds kTurn{20};

std::optional<ChildProcess> launched(const ChildProcess::Setup& setup) {
    auto child = ChildProcess::launch(setup);
    if (!child) log("Could not run %@: %@", setup.path, std::strerror(errno));
    return child;
}

/// A pipe into or out of the programs, where one is wanted.
std::optional<Pipe> pipeIf(bool wanted) {
    return wanted ? std::optional<Pipe>(std::in_place) : std::nullopt;
}

/// The end of a pipe that is ours.
Descriptor taken(std::optional<Pipe>& pipe, Descriptor Pipe::*end) {
    return pipe ? std::move((*pipe).*end) : Descriptor();
}

/// Waits for a second at most, while the run loop turns; false when the task still runs then.
bool waitASecond(ChildProcess& task) {
    const auto deadline = ChildProcess::Clock::now() + kWait;
    while (!task.waitUntil(std::min(deadline, ChildProcess::Clock::now() + kTurn))) {
        RunLoop::current()->dispatch();
        if (ChildProcess::Clock::now() >= deadline) return false;
    }
    return true;
}

void waitFor(ChildProcess& task, const std::string& name) {
    RunLoop::current()->dispatch();
    for (int wait = 0; wait < kWaits; ++wait) {
        if (waitASecond(task)) return;
        debugLog("task %@ still running... attempting to kill", name);
        task.askToEnd();
    }
    log("stopped waiting for task: %@", name);
}

/// Whether those that are wanted are there.
bool areOpen(std::span<const std::optional<Pipe>> pipes) {
    const bool good = std::ranges::all_of(pipes, [](const auto& pipe) { return !pipe || pipe->isOpen(); });
    if (!good) log("Could not make a pipe to another program: %@", std::strerror(errno));
    return good;
}

}  // namespace

bool runCommand(const std::string& path, std::span<const std::string> withArguments, const Data* withInputFrom,
                ByteBuffer* andOutputTo) {
    std::optional<Pipe> pipes[] = {pipeIf(withInputFrom != nullptr), pipeIf(andOutputTo != nullptr)};
    auto& [in, out] = pipes;
    if (!areOpen(pipes)) return true;
    ChildProcess::Setup setup{path, {withArguments.begin(), withArguments.end()}};
    if (in) setup.input = in->read.get();
    if (out) setup.output = out->write.get();
    const auto child = launched(setup);
    if (!child) return true;
    if (in) in->read.reset();
    if (out) out->write.reset();
    exchangeBytes(taken(in, &Pipe::write), withInputFrom != nullptr ? withInputFrom->view() : "",
                  taken(out, &Pipe::read), andOutputTo);
    return true;
}

bool runPipe(std::span<const PipeCommand> commands, const Data* withInputFrom, ByteBuffer* andOutputTo,
             const TaskLimits& limits) {
    if (commands.empty()) return false;
    // One pipe in front of each program and one behind the last.
    std::vector<std::optional<Pipe>> pipes;
    for (std::size_t i = 0; i <= commands.size(); ++i)
        pipes.push_back(
            pipeIf((i > 0 || withInputFrom != nullptr) && (i < commands.size() || andOutputTo != nullptr)));
    if (!areOpen(pipes)) return false;
    std::vector<ChildProcess> tasks;  // the last one first
    for (auto i = commands.size(); i-- > 0;) {
        ChildProcess::Setup setup{commands[i].command, commands[i].arguments};
        if (pipes[i]) setup.input = pipes[i]->read.get();
        if (pipes[i + 1]) setup.output = pipes[i + 1]->write.get();
        auto task = launched(setup);
        if (!task) return false;  // the ends of the pipes go, and with them what runs already
        tasks.push_back(std::move(*task));
        if (pipes[i]) pipes[i]->read.reset();
        if (pipes[i + 1]) pipes[i + 1]->write.reset();
    }
    const auto exchange =
        exchangeBytes(taken(pipes.front(), &Pipe::write), withInputFrom != nullptr ? withInputFrom->view() : "",
                      taken(pipes.back(), &Pipe::read), andOutputTo, limits);
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        if (exchange == Exchange::limitPassed) tasks[i].kill();
        waitFor(tasks[i], commands[commands.size() - 1 - i].command);
    }
    return exchange == Exchange::done;
}

}  // namespace lorvale
