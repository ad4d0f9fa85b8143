// Any bytes read as a lock file; and what this process writes reads as its own, whatever it is called.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "lorvale/platform/paths.h"
#include "mail/stores/StoreLock.h"

using namespace lorvale;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const auto owner = parseLockFile(text);
    if (owner.process < 0 || owner.host != text.substr(0, text.find(','))) std::abort();
    if (owner.process > 0 && std::ranges::count(text, ',') < 3) std::abort();

    setHostName(text.substr(0, size / 2));
    setProcessName(text.substr(size / 2));
    const auto line = lockFileLine();
    if (line.find('\n') != line.size() - 1 || std::ranges::count(line, ',') != 3) std::abort();
    const auto mine = parseLockFile(line);
    if (mine.process != ::getpid()) std::abort();
    return 0;
}
