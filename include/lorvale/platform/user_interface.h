#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/values/data.h"

namespace lorvale {

enum class AlertChoice { defaultButton, alternateButton, otherButton };

/// What a progress panel shows.
struct ProgressState {
    std::string title, message;
    std::string detail;  ///< a smaller line below; shown only with showsDetail
    std::string buttonTitle;
    double minimum = 0, maximum = 1, value = 0;  ///< of the bar
    bool showsBar = true, showsDetail = false, isButtonEnabled = true;
};

/// A panel on work that takes a while, with one button to end it.  Made by the host, driven by the library. The
/// sessions belong to the main thread; update() comes from any.  As it stands it is the panel of a host that is
/// not there: silent, and nobody presses the button.
class LORVALE_EXPORT ProgressPanel {
public:
    virtual ~ProgressPanel();
    /// Called for each change.  A frame of the panel is kept under `name` when that is not empty.
    virtual void update(const ProgressState& state, std::string_view name);
    virtual void show();
    virtual void hide();
    /// While a session lasts the panel alone takes events, and only in turnModalSession(), which handles those
    /// that wait and returns.
    virtual void beginModalSession();
    virtual void turnModalSession();
    virtual void endModalSession();
};

/// A sound made of the bytes that a letter brought.
class LORVALE_EXPORT Sound {
public:
    virtual ~Sound();
    virtual void play() = 0;
};

/// The few questions that a graphical host answers with panels.  Asked only where canUseWindowKit of Defaults
/// holds.  Held process-wide, not owned.  The answers given here are those of a program without windows: the
/// cautious second button, no other host, no sound, a panel that nobody sees, the end of the process left to
/// its owner.
class LORVALE_EXPORT UserInterface {
public:
    virtual ~UserInterface();
    /// Shows a panel with up to three buttons and waits for the answer; an empty title leaves its button out.
    [[nodiscard]] virtual AlertChoice runAlertPanel(std::string_view title, std::string_view message,
                                                    std::string_view defaultButton,
                                                    std::string_view alternateButton,
                                                    std::string_view otherButton);
    virtual void beep();
    /// Asks for a mail server in place of one that did not work: the host to try, or nullopt to give up, as
    /// here.
    [[nodiscard]] virtual std::optional<std::string> askForHost(std::string_view message,
                                                                std::string_view oldHost);
    /// A sound for data of a content type such as "audio/basic"; null where none can be made or heard, as here.
    [[nodiscard]] virtual std::shared_ptr<Sound> soundFromData(const Data& data, std::string_view contentType);
    /// A panel of its own.  `cancel` is called, by the main thread, each time its button is pressed.
    [[nodiscard]] virtual std::unique_ptr<ProgressPanel> makeProgressPanel(std::function<void()> cancel);
    /// Asks the application to end.  May return; the caller goes on as if the answer had been no.
    virtual void terminate();
    /// Runs a call later in the main thread.  Here: on the main run loop.
    virtual void performLater(RunLoop::Callback call, RunLoop::Clock::duration delay);
};

/// Never null: an interface without windows stands in where none is set.
[[nodiscard]] LORVALE_EXPORT UserInterface& currentUserInterface();
/// Null brings back the one without windows.  The host keeps the object until it has set another.
LORVALE_EXPORT void setCurrentUserInterface(UserInterface* interface);
/// True when a host has set one: the sign of a graphical application.
[[nodiscard]] LORVALE_EXPORT bool hasUserInterface();

}  // namespace lorvale
