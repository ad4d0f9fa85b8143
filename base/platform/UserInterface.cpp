#include "lorvale/platform/user_interface.h"

#include <atomic>
#include <utility>

namespace lorvale {

namespace {

std::atomic<UserInterface*> current{nullptr};

}  // namespace

ProgressPanel::~ProgressPanel() = default;
void ProgressPanel::update(const ProgressState&, std::string_view) {}
void ProgressPanel::show() {}
void ProgressPanel::hide() {}
void ProgressPanel::beginModalSession() {}
void ProgressPanel::turnModalSession() {}
void ProgressPanel::endModalSession() {}

Sound::~Sound() = default;

UserInterface::~UserInterface() = default;

AlertChoice UserInterface::runAlertPanel(std::string_view, std::string_view, std::string_view, std::string_view,
                                         std::string_view) {
    return AlertChoice::alternateButton;
}

void UserInterface::beep() {}

std::optional<std::string> UserInterface::askForHost(std::string_view, std::string_view) {
    return std::nullopt;
}

std::shared_ptr<Sound> UserInterface::soundFromData(const Data&, std::string_view) {
    return nullptr;
}

std::unique_ptr<ProgressPanel> UserInterface::makeProgressPanel(std::function<void()>) {
    return std::make_unique<ProgressPanel>();
}

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
