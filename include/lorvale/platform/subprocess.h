#pragma once
#include <chrono>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/data.h"
#include "lorvale/values/format.h"

/// Running other programs.  A child gets the three standard descriptors and no other one, no signal is blocked
/// or ignored in it, and it leaves no zombie behind, whoever forgets it.  The SIGPIPE of a child that does not
/// read what is written to it never reaches the host.

namespace lorvale {

/// What a child process has to say, on the thread that launched it.
class LORVALE_EXPORT SubprocessDelegate {
public:
    virtual ~SubprocessDelegate();
    /// Something failed, as a sentence.  False: not told to anybody yet, as here; then a panel tells it where
    /// there is a user interface, standard error elsewhere.
    virtual bool subprocessError(std::string_view text);
    /// The child has written something.
    virtual void subprocessOutput(std::string_view text);
    /// The child has closed its output.  Comes once.
    virtual void subprocessDone();
};

/// A shell command that runs beside the program, its standard input and output attached to this object by pipes
/// or by a pseudo-terminal.  Its output comes while the thread that made the object runs its run loop, to which
/// the object belongs.  Dropping the object closes both ends; the child goes on until it notices.
class LORVALE_EXPORT Subprocess : public std::enable_shared_from_this<Subprocess> {
public:
    enum class PtySupport { no, yes };  ///< yes: the child has a controlling terminal, which echoes nothing
    enum class StdErr { no, yes };      ///< yes: standard error comes with the output, else it stays the host's

    /// Runs "/bin/sh -c command" in a process group of its own.  The delegate is borrowed and may be null.
    /// Never null: where that fails, the delegate is told, and the object has no child.
    [[nodiscard]] static std::shared_ptr<Subprocess> init(std::string_view command,
                                                          SubprocessDelegate* withDelegate = nullptr,
                                                          PtySupport andPtySupport = PtySupport::no,
                                                          StdErr andStdErr = StdErr::yes);
    ~Subprocess();

    /// The number of the shell; 0 when there is no child.
    int childPid() const;
    SubprocessDelegate* delegate() const;
    void setDelegate(SubprocessDelegate* delegate);

    /// Writes to the child's input, and waits until it has taken that.  False when it does not read any more.
    bool send(std::string_view text, bool withNewline = true);
    /// With the marks of formatText().
    template <class... Arguments>
    bool sendFormat(std::string_view text, const Arguments&... arguments);
    /// Closes the child's input.
    void terminateInput();
    /// Asks the command, as the shell's child, to end (SIGTERM), and takes it for done.  Nothing without a
    /// child.
    void terminate();

private:
    struct State;
    Subprocess();
    void start(std::string_view command, PtySupport pty, StdErr withStdErr);
    void showError(std::string_view text, int error) const;
    void readOutput();
    void childDidExit();

    const std::unique_ptr<State> _state;
};

/// One program of a pipeline: the path of an executable file, and its arguments behind its name.
struct PipeCommand {
    std::string command;
    std::vector<std::string> arguments;
};

/// How far a program may go that works on what a stranger has sent.
struct TaskLimits {
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
    std::size_t mostOutput = std::numeric_limits<std::size_t>::max();  ///< bytes
};

/// Runs a program: writes all of the input, reads the output up to its end and appends it to the buffer. Either
/// may be null: the program then reads from /dev/null, or writes where the host does.  Does not wait for the
/// program to end.  Always true; a program that cannot be started is logged.
LORVALE_EXPORT bool runCommand(const std::string& path, std::span<const std::string> withArguments,
                               const Data* withInputFrom, ByteBuffer* andOutputTo);

/// Runs programs with the output of each as the input of the next one, likewise, and waits up to three seconds
/// for each to end; one that goes on is asked to (SIGTERM), each second.  The calling thread's run loop turns
/// meanwhile.  False for no commands, when one cannot be started, when the input is not read to its end, and
/// when a limit is passed, which ends all programs at once; what they answer themselves does not count.
LORVALE_EXPORT bool runPipe(std::span<const PipeCommand> commands, const Data* withInputFrom,
                            ByteBuffer* andOutputTo, const TaskLimits& limits = {});

template <class... Arguments>
bool Subprocess::sendFormat(std::string_view text, const Arguments&... arguments) {
    return send(formatText(text, arguments...));
}

}  // namespace lorvale
