#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/platform/user_agent.h"

namespace mailhost {

/// The host object of a console program: says what the library has to say on standard error, and asks what it
/// has to ask on the terminal.  Without a terminal nobody is there: no, and no password.  Work for the main
/// thread goes to the main run loop, as the base class does it.
class ConsoleAgent : public lorvale::UserAgent {
public:
    void displayStatus(std::string_view status, lorvale::MessageStore* forStore) override;
    void alertUserWithMessage(std::string_view message, std::string_view title) override;
    bool queryUserForYesNoWithMessage(std::string_view message, std::string_view title,
                                      std::string_view yesTitle, std::string_view noTitle) override;
    std::optional<std::string> queryUserForPasswordWithMessage(std::string_view message,
                                                               bool* remember) override;
};

/// Receives the library's log lines: shown as they come, or only mentioned at the end.
class LogLines {
public:
    explicit LogLines(bool shown);
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

private:
    const bool _shown;
    bool _spoke = false;  // the sink is called once at a time
};

}  // namespace mailhost
