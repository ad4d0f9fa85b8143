#include "Pager.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Terminal.h"

extern char** environ;

namespace mailhost {

namespace {

bool isInstalled(std::string_view program) {
    const char* const path = std::getenv("PATH");
    std::string_view folders = path == nullptr ? "/usr/bin:/bin" : path;
    while (!folders.empty()) {
        const auto folder = folders.substr(0, folders.find(':'));
        if (::access((std::string(folder) + "/" + std::string(program)).c_str(), X_OK) == 0) return true;
        folders.remove_prefix(std::min(folder.size() + 1, folders.size()));
    }
    return false;
}

/// The command of the shell; empty for none.
std::string pagerCommand() {
    for (const char* const name : {"MAILHOST_PAGER", "PAGER"})
        if (const char* const command = std::getenv(name))
            return std::string_view(command) == "cat" ? std::string() : command;
    // It cannot move about on a terminal without such commands, and asks before it goes on.
    const char* const terminal = std::getenv("TERM");
    const bool canMove = terminal != nullptr && *terminal != '\0' && std::string_view(terminal) != "dumb";
    return canMove && isInstalled("less") ? "less -FRX" : "";
}

/// The signals of the terminal are the pager's: it ends when the user leaves it, and the host after it.
constexpr int kSignals[] = {SIGINT, SIGQUIT, SIGPIPE};

pid_t spawn(const std::string& command, int input) {
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int signal : kSignals) ::sigaddset(&signals, signal);
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    std::string shell = "sh", option = "-c", words = command;
    char* arguments[] = {shell.data(), option.data(), words.data(), nullptr};
    // What the pager needs to show bold text, where the user has not said what he wants of it.
    ::setenv("LESS", "FRX", 0);
    pid_t child = -1;
    if (::posix_spawn(&child, "/bin/sh", &files, &attributes, arguments, environ) != 0) child = -1;
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&files);
    return child;
}

}  // namespace

Pager::Pager() {
    const auto command = pagerCommand();
    if (command.empty() || !isTerminal(STDOUT_FILENO)) return;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return;  // without a pager the text is there all the same
    std::fflush(stdout);
    _child = spawn(command, ends[0]);
    ::close(ends[0]);
    if (_child > 0) {
        for (const int signal : kSignals) ::signal(signal, SIG_IGN);
        setOutputIsPaged(true);
        _terminal = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
        ::dup2(ends[1], STDOUT_FILENO);
    }
    ::close(ends[1]);
}

Pager::~Pager() {
    if (_child <= 0) return;
    std::fflush(stdout);
    std::clearerr(stdout);  // a pager that was left does not read the rest
    ::dup2(_terminal, STDOUT_FILENO);
    ::close(_terminal);
    setOutputIsPaged(false);
    while (::waitpid(_child, nullptr, 0) < 0 && errno == EINTR) continue;
    for (const int signal : kSignals) ::signal(signal, SIG_DFL);
}

}  // namespace mailhost
