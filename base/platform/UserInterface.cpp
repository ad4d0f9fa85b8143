#include "lorvale/platform/user_interface.h"

#include <atomic>
#include <utility>

namespace lorvale {

namespace {

std::atomic<UserInterface*> current{nullptr};

}  // namespace

UserInterface::~UserInterface() = default;

AlertChoice UserInterface::runAlertPanel(std::string_view, std::string_view, std::string_view, std::string_view,
                                         std::string_view) {
    return AlertChoice::alternateButton;
}

void UserInterface::beep() {}
void UserInterface::terminate() {}

void UserInterface::performLater(RunLoop::Callback call, RunLoop::Clock::duration delay) {
    RunLoop::main()->performAfterDelay(std::move(call), delay);
}

UserInterface& currentUserInterface() {
    static UserInterface& withoutWindows = *new UserInterface;  // never destroyed: late threads may still ask
    auto* const set = current.load();
    return set != nullptr ? *set : withoutWindows;
}

void setCurrentUserInterface(UserInterface* interface) {
    current = interface;
}

bool hasUserInterface() {
    return current != nullptr;
}

}  // namespace lorvale
