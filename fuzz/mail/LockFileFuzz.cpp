// Any bytes read as a lock file; and what this process writes reads as its own, whatever it is called.
#include <unistd.h>

#include "fuzz/FuzzTarget.h"
#include "lorvale/platform/paths.h"
#include "mail/stores/StoreLock.h"

using namespace lorvale;

LORVALE_FUZZ_TARGET(text) {
    const auto owner = parseLockFile(text);
    if (owner.process < 0 || owner.host != text.substr(0, text.find(','))) std::abort();
    if (owner.process > 0 && std::ranges::count(text, ',') < 3) std::abort();

    setHostName(text.substr(0, text.size() / 2));
    setProcessName(text.substr(text.size() / 2));
    const auto line = lockFileLine();
    if (line.find('\n') != line.size() - 1 || std::ranges::count(line, ',') != 3) std::abort();
    const auto mine = parseLockFile(line);
    if (mine.process != ::getpid()) std::abort();
}
