#include "lorvale/platform/subprocess.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/platform/ChildProcess.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/user_interface.h"
#include "lorvale/values/encoding.h"

namespace lorvale {

namespace {

constexpr std::size_t kOutputBuffer = 2048;

/// Both sides of a pseudo-terminal, not open when there is none to be had.
struct PseudoTerminal {
    PseudoTerminal();
    bool isOpen() const { return master && slave; }

    Descriptor master, slave;  // the slave stays open until the child has it, or the master would read its end
    std::string slaveName;
};

/// Lines with the usual editing keys, carriage returns read as newlines and written in front of them, no echo.
void setModes(const Descriptor& slave) {
    termios modes{};
    if (::tcgetattr(slave.get(), &modes) != 0) return;
    modes.c_iflag = ICRNL | IXON | BRKINT | IGNPAR;
    modes.c_oflag = OPOST | ONLCR;
    modes.c_cflag = CS8 | CREAD | HUPCL;
    modes.c_lflag = ISIG | ICANON | IEXTEN | ECHOE | ECHOKE | ECHOCTL;
    ::cfsetspeed(&modes, B9600);
    constexpr std::pair<int, cc_t> kKeys[] = {
        {VERASE, 0x7F}, {VKILL, 0x15},    {VINTR, 3},       {VQUIT, 0x1C},
        {VSTART, 0x11}, {VSTOP, 0x13},    {VEOF, 4},        {VEOL, _POSIX_VDISABLE},
        {VSUSP, 0x1A},  {VREPRINT, 0x12}, {VDISCARD, 0x0F}, {VWERASE, 0x17},
        {VLNEXT, 0x16},
    };
    for (const auto& [key, character] : kKeys) modes.c_cc[key] = character;
    ::tcsetattr(slave.get(), TCSANOW, &modes);
}

PseudoTerminal::PseudoTerminal() : master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    std::array<char, 128> name;
    if (!master || ::grantpt(master.get()) != 0 || ::unlockpt(master.get()) != 0) return;
    if (::ptsname_r(master.get(), name.data(), name.size()) != 0) return;
    slaveName = name.data();
    slave = Descriptor(::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (slave) setModes(slave);
}

}  // namespace

struct Subprocess::State {
    SubprocessDelegate* delegate = nullptr;
    std::optional<ChildProcess> child;
    int childPid = 0;
    Descriptor toChild, fromChild;
    RunLoop::Source outputWatch;  // behind what it watches, so that it goes first
};

SubprocessDelegate::~SubprocessDelegate() = default;
bool SubprocessDelegate::subprocessError(std::string_view) {
    return false;
}
void SubprocessDelegate::subprocessOutput(std::string_view) {}
void SubprocessDelegate::subprocessDone() {}

Subprocess::Subprocess() : _state(std::make_unique<State>()) {}
Subprocess::~Subprocess() = default;

std::shared_ptr<Subprocess> Subprocess::init(std::string_view command, SubprocessDelegate* withDelegate,
                                             PtySupport andPtySupport, StdErr andStdErr) {
    const std::shared_ptr<Subprocess> result(new Subprocess);
    result->setDelegate(withDelegate);
    result->start(command, andPtySupport, andStdErr);
    return result;
}

void Subprocess::start(std::string_view command, PtySupport pty, StdErr withStdErr) {
    ChildProcess::Setup setup{"/bin/sh", {"-c", std::string(command)}};
    Pipe in, out;
    std::optional<PseudoTerminal> terminal;
    if (pty == PtySupport::yes) {
        terminal.emplace();
        if (!terminal->isOpen()) return showError("Error grabbing ptys for subprocess.", errno);
        setup.terminal = terminal->slaveName;
        in.write = Descriptor(::fcntl(terminal->master.get(), F_DUPFD_CLOEXEC, 3));
        out.read = std::move(terminal->master);
        setup.error = withStdErr == StdErr::yes ? STDOUT_FILENO : -1;
    } else {
        if (!in.isOpen() || !out.isOpen()) return showError("Error creating pipes to subprocess.", errno);
        setup.input = in.read.get();
        setup.output = out.write.get();
        setup.error = withStdErr == StdErr::yes ? out.write.get() : -1;
        setup.hasOwnGroup = true;
    }
    auto child = ChildProcess::launch(setup);
    if (!child) return showError("Error returned from vfork while creating subprocess.", errno);
    _state->childPid = child->pid();
    _state->child = std::move(child);
    _state->toChild = std::move(in.write);
    _state->fromChild = std::move(out.read);
    _state->outputWatch = RunLoop::current()->watch(_state->fromChild.get(), {.readable = true},
                                                    [this](RunLoop::Ready) { readOutput(); });
}

int Subprocess::childPid() const {
    return _state->childPid;
}

SubprocessDelegate* Subprocess::delegate() const {
    return _state->delegate;
}

void Subprocess::setDelegate(SubprocessDelegate* delegate) {
    _state->delegate = delegate;
}

void Subprocess::showError(std::string_view text, int error) const {
    if (_state->delegate != nullptr && _state->delegate->subprocessError(text)) return;
    if (hasUserInterface()) {
        static_cast<void>(currentUserInterface().runAlertPanel("", text, "OK", "", ""));
    } else {
        log("%@: %@", text, std::strerror(error));
    }
}

void Subprocess::readOutput() {
    const auto self = shared_from_this();  // a delegate may drop us
    std::array<char, kOutputBuffer> buffer;
    const auto count = ::read(_state->fromChild.get(), buffer.data(), buffer.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
    // A terminal whose other side was closed fails instead of ending.
    if (count <= 0) return childDidExit();
    if (_state->delegate == nullptr) return;
    _state->delegate->subprocessOutput(decodeCString({buffer.data(), static_cast<std::size_t>(count)}));
}

void Subprocess::childDidExit() {
    if (_state->childPid == 0) return;
    _state->outputWatch.reset();
    _state->fromChild.reset();
    _state->toChild.reset();
    _state->childPid = 0;
    _state->child.reset();
    if (_state->delegate != nullptr) _state->delegate->subprocessDone();
}

bool Subprocess::send(std::string_view text, bool withNewline) {
    const WithoutPipeSignal guard;
    std::string bytes(text);
    if (withNewline) bytes += '\n';
    for (std::string_view rest = bytes; !rest.empty();) {
        const auto written = ::write(_state->toChild.get(), rest.data(), rest.size());
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

void Subprocess::terminateInput() {
    _state->toChild.reset();
}

void Subprocess::terminate() {
    if (_state->childPid == 0) return;
    // The shell's number and one more: the command, as the shell starts it first.  Programs rely on the shell
    // itself being left alone, so that it can run what stands behind the command.  Somebody else may have got
    // that number; such a one is in another process group, and left alone.
    const auto command = _state->childPid + 1;
    if (::getpgid(command) == _state->childPid) ::kill(command, SIGTERM);
    childDidExit();
}

}  // namespace lorvale
