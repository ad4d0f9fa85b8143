#pragma once
#include <csignal>
#include <thread>

#include "lorvale/platform/run_loop.h"

namespace mailhost {

/// Makes an interrupt an event of the main loop, so that work ends cleanly.  Made before any thread is.
class Interrupts {
public:
    explicit Interrupts(lorvale::RunLoop::Callback call);
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

private:
    sigset_t _before{};
    int _descriptor = -1;
    lorvale::RunLoop::Source _source;
};

/// For as long as the main thread may wait for a server: an interrupt ends the program then, as it does without
/// Interrupts.  Not around anything that a kill would harm.  Within the life of an Interrupts.
class InterruptsEndAtOnce {
public:
    InterruptsEndAtOnce();
    ~InterruptsEndAtOnce();
    InterruptsEndAtOnce(const InterruptsEndAtOnce&) = delete;
    InterruptsEndAtOnce& operator=(const InterruptsEndAtOnce&) = delete;

private:
    const int _done;
    std::thread _waiting;  // the main loop does not turn
};

}  // namespace mailhost
