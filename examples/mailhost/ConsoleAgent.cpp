#include "ConsoleAgent.h"

#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <iostream>

#include "Terminal.h"
#include "lorvale/imap.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

bool alertsAreQuiet = false;  // main thread

std::optional<std::string> answerTo(std::string_view question) {
    if (!isTerminal(STDIN_FILENO)) return std::nullopt;
    ProgressBar::clear();
    std::fprintf(stderr, "%s ", printableLine(question).c_str());
    std::fflush(stderr);
    std::string answer;
    if (!std::getline(std::cin, answer)) return std::nullopt;
    return answer;
}

/// Keeps what is typed off the terminal.
class SilentTyping {
public:
    SilentTyping() : _changed(::tcgetattr(STDIN_FILENO, &_before) == 0) {
        if (!_changed) return;
        termios silent = _before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~SilentTyping() {
        if (!_changed) return;
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &_before);
        std::fputc('\n', stderr);
    }
    SilentTyping(const SilentTyping&) = delete;
    SilentTyping& operator=(const SilentTyping&) = delete;

private:
    termios _before = {};
    bool _changed;
};

std::atomic<bool> agreesToAll = false;

}  // namespace

void ConsoleAgent::agreeToAll() {
    agreesToAll = true;
}

void say(std::string_view text) {
    ProgressBar::clear();
    std::fprintf(stderr, "%s\n", printableLine(text).c_str());
}

QuietAlerts::QuietAlerts() {
    alertsAreQuiet = true;
}

QuietAlerts::~QuietAlerts() {
    alertsAreQuiet = false;
}

void ConsoleAgent::displayStatus(std::string_view status, lorvale::MessageStore* forStore) {
    // A line for each message that is indexed would be too much; index shows a bar.
    if (forStore != nullptr && forStore->isUpdatingIndex()) return;
    // What goes on with a server changes by the moment.
    if (dynamic_cast<lorvale::IMAPStore*>(forStore) != nullptr) {
        if (!isTerminal(STDERR_FILENO) || !lorvale::RunLoop::isMainThread()) return;
        return status.empty() ? ProgressBar::clear() : ProgressBar::drawLine(status, -1);
    }
    if (!status.empty() && isTerminal(STDERR_FILENO)) say(status);
}

void ConsoleAgent::alertUserWithMessage(std::string_view message, std::string_view title) {
    if (alertsAreQuiet) return;
    say("mailhost: " + (title.empty() ? "" : std::string(title) + ": ") + std::string(message));
}

bool ConsoleAgent::queryUserForYesNoWithMessage(std::string_view message, std::string_view title,
                                                std::string_view yesTitle, std::string_view noTitle) {
    if (agreesToAll) return true;
    const auto answer = answerTo((title.empty() ? "" : std::string(title) + ": ") + std::string(message) +
                                 " [y: " + std::string(yesTitle) + ", n: " + std::string(noTitle) + "]");
    if (!answer) return false;
    const auto word = lorvale::trimmed(*answer);
    return lorvale::equalIgnoringAsciiCase(word, "y") || lorvale::equalIgnoringAsciiCase(word, "yes") ||
           lorvale::equalIgnoringCase(word, yesTitle);
}

std::optional<std::string> ConsoleAgent::queryUserForPasswordWithMessage(std::string_view message,
                                                                         bool* remember) {
    if (remember != nullptr) *remember = false;
    if (!isTerminal(STDIN_FILENO)) return std::nullopt;
    const SilentTyping silent;
    return answerTo(message);
}

}  // namespace mailhost
