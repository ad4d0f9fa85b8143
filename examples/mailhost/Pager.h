#pragma once
#include <sys/types.h>

namespace mailhost {

/// While it lives, what goes to standard output on a terminal goes through the user's pager: $MAILHOST_PAGER,
/// else $PAGER, a command of the shell, else "less -FRX" where that is installed and the
/// terminal can do more than print.  None for an empty command,
/// for "cat", and where standard output is no terminal.  Its end waits for the pager to be left.  Leaving it
/// early is no failure: the rest of the output is dropped.
class Pager {
public:
    Pager();
    ~Pager();
    Pager(const Pager&) = delete;
    Pager& operator=(const Pager&) = delete;

private:
    pid_t _child = -1;
    int _terminal = -1;  // standard output as it was
};

}  // namespace mailhost
