#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/platform/user_agent.h"

namespace mailhost {

/// A line on standard error, whatever it holds.
void say(std::string_view text);

/// While it lives, what the library would alert the user of is left to the command, which tells it in its own
/// words.
class QuietAlerts {
public:
    QuietAlerts();
    ~QuietAlerts();
    QuietAlerts(const QuietAlerts&) = delete;
    QuietAlerts& operator=(const QuietAlerts&) = delete;
};

/// The host object of a console program: says what the library has to say on standard error, and asks what it
/// has to ask on the terminal.  Without a terminal nobody is there: no, and no password.  Work for the main
/// thread goes to the main run loop, as the base class does it.
class ConsoleAgent : public lorvale::UserAgent {
public:
    /// From now on the answer to every question is yes.
    static void agreeToAll();

    void displayStatus(std::string_view status, lorvale::MessageStore* forStore) override;
    void alertUserWithMessage(std::string_view message, std::string_view title) override;
    bool queryUserForYesNoWithMessage(std::string_view message, std::string_view title,
                                      std::string_view yesTitle, std::string_view noTitle) override;
    std::optional<std::string> queryUserForPasswordWithMessage(std::string_view message,
                                                               bool* remember) override;
};

}  // namespace mailhost
