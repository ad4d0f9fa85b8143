#include "Interrupts.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <utility>

namespace mailhost {

namespace {

sigset_t interrupts() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    return signals;
}

}  // namespace

Interrupts::Interrupts(lorvale::RunLoop::Callback call) {
    const auto wanted = interrupts();
    ::pthread_sigmask(SIG_BLOCK, &wanted, &_before);
    _descriptor = ::signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK);
    _source = lorvale::RunLoop::main()->watch(_descriptor, {.readable = true},
                                              [this, call = std::move(call)](lorvale::RunLoop::Ready) {
                                                  signalfd_siginfo info{};
                                                  if (::read(_descriptor, &info, sizeof info) == sizeof info)
                                                      call();
                                              });
}

Interrupts::~Interrupts() {
    _source.reset();
    ::close(_descriptor);
    ::pthread_sigmask(SIG_SETMASK, &_before, nullptr);
}

InterruptsEndAtOnce::InterruptsEndAtOnce() {
    // Shells start what is to run in the background with interrupts ignored.
    struct sigaction ends {};
    ends.sa_handler = SIG_DFL;
    ::sigaction(SIGINT, &ends, &_onInterrupt);
    ::sigaction(SIGTERM, &ends, &_onTermination);
    const auto ending = interrupts();
    ::pthread_sigmask(SIG_UNBLOCK, &ending, &_before);
}

InterruptsEndAtOnce::~InterruptsEndAtOnce() {
    ::pthread_sigmask(SIG_SETMASK, &_before, nullptr);
    ::sigaction(SIGINT, &_onInterrupt, nullptr);
    ::sigaction(SIGTERM, &_onTermination, nullptr);
}

}  // namespace mailhost
