#include "Output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace mailhost {

namespace {

bool complained = false;  // the main thread's; once is enough

[[noreturn]] void complainAboutOutput() {
    complained = true;
    throw Failure(std::string("cannot write the output: ") + std::strerror(errno));
}

}  // namespace

void LineOutput::write(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    if (std::ferror(stdout) != 0) complainAboutOutput();
    const auto now = Clock::now();
    if (now < _nextFlush) return;
    if (std::fflush(stdout) != 0) complainAboutOutput();
    _nextFlush = now + std::chrono::milliseconds(20);
}

void finishOutput() {
    if (!complained && (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)) complainAboutOutput();
}

}  // namespace mailhost
