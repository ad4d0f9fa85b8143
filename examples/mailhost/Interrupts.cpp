#include "Interrupts.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <utility>

namespace mailhost {

namespace {

std::atomic<bool> endsAtOnce = false;

sigset_t interrupts() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    return signals;
}

int openSignals() {
    const auto wanted = interrupts();
    return ::signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// The signal that has come; 0 for none.
int takeSignal(int descriptor) {
    signalfd_siginfo info{};
    return ::read(descriptor, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

/// As if nobody had asked for the signal, nor a shell had it ignored for what runs in the background.
void endBy(int signal) {
    std::signal(signal, SIG_DFL);
    const auto ending = interrupts();
    ::pthread_sigmask(SIG_UNBLOCK, &ending, nullptr);
    (void)::raise(signal);
}

}  // namespace

Interrupts::Interrupts(lorvale::RunLoop::Callback call) {
    const auto wanted = interrupts();
    ::pthread_sigmask(SIG_BLOCK, &wanted, &_before);
    _descriptor = openSignals();
    _source = lorvale::RunLoop::main()->watch(_descriptor, {.readable = true},
                                              [this, call = std::move(call)](lorvale::RunLoop::Ready) {
                                                  const int signal = takeSignal(_descriptor);
                                                  if (signal == 0) return;
                                                  if (endsAtOnce) endBy(signal);
                                                  call();
                                              });
}

Interrupts::~Interrupts() {
    _source.reset();
    ::close(_descriptor);
    ::pthread_sigmask(SIG_SETMASK, &_before, nullptr);
}

InterruptsEndAtOnce::InterruptsEndAtOnce() : _done(::eventfd(0, EFD_CLOEXEC)) {
    endsAtOnce = true;
    _waiting = std::thread([done = _done] {
        const int signals = openSignals();
        pollfd waited[] = {{signals, POLLIN, 0}, {done, POLLIN, 0}};
        while (::poll(waited, 2, -1) < 0 || waited[1].revents == 0)
            if (const int signal = takeSignal(signals); signal != 0) endBy(signal);
        ::close(signals);
    });
}

InterruptsEndAtOnce::~InterruptsEndAtOnce() {
    const std::uint64_t one = 1;
    (void)!::write(_done, &one, sizeof one);
    _waiting.join();
    ::close(_done);
    endsAtOnce = false;
}

}  // namespace mailhost
