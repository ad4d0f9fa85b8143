#pragma once
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/platform/run_loop.h"

namespace lorvale {

enum class AlertChoice { defaultButton, alternateButton, otherButton };

/// The few questions that a graphical host answers with panels.  Asked only where canUseWindowKit of Defaults
/// holds.  Held process-wide, not owned.  The answers given here are those of a program without windows: the
/// cautious second button, no sound, the end of the process left to its owner.
class LORVALE_EXPORT UserInterface {
public:
    virtual ~UserInterface();
    /// Shows a panel with up to three buttons and waits for the answer; an empty title leaves its button out.
    virtual AlertChoice runAlertPanel(std::string_view title, std::string_view message,
                                      std::string_view defaultButton, std::string_view alternateButton,
                                      std::string_view otherButton);
    virtual void beep();
    /// Asks the application to end.  May return; the caller goes on as if the answer had been no.
    virtual void terminate();
    /// Runs a call later in the main thread.  Here: on the main run loop.
    virtual void performLater(RunLoop::Callback call, RunLoop::Clock::duration delay);
};

/// Never null: an interface without windows stands in where none is set.
LORVALE_EXPORT UserInterface& currentUserInterface();
/// Null brings back the one without windows.  The host keeps the object until it has set another.
LORVALE_EXPORT void setCurrentUserInterface(UserInterface* interface);
/// True when a host has set one: the sign of a graphical application.
LORVALE_EXPORT bool hasUserInterface();

}  // namespace lorvale
