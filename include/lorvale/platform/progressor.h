#pragma once
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/user_interface.h"

namespace lorvale {

/// Drives a small panel for work that takes a while: a title, a message, a detail line, a bar and one button.
/// The panel is the host's (UserInterface::makeProgressPanel()), made when it is first needed; without a host
/// nothing shows, and nobody cancels.
///
/// What it shows may be set by any thread, and any thread may ask cancelled().  Sessions belong to the main
/// thread.
class LORVALE_EXPORT Progressor {
public:
    using Clock = std::chrono::steady_clock;

    /// The one that the process shares, reset, with these texts.
    static const std::shared_ptr<Progressor>& newWithTitle(std::string_view title, std::string_view message);
    Progressor();
    Progressor(std::string_view title, std::string_view message);
    ~Progressor();
    Progressor(const Progressor&) = delete;
    Progressor& operator=(const Progressor&) = delete;

    /// The process's name as the title, no message and no detail; 0 of 0 to 1, the bar shown, the detail
    /// hidden, the button "Cancel" enabled.
    void reset();
    /// nullopt: the process's name.
    void setTitle(std::optional<std::string_view> title);
    void setTitle(std::optional<std::string_view> title, std::string_view message);
    /// The panel keeps its frame under the name.
    void setName(std::string_view name);
    void setMessage(std::string_view message);
    void setDetailMessage(std::string_view message);
    void setButtonTitle(std::string_view title);
    void setButtonEnabled(bool enabled);
    void setMinValue(double value);
    void setMaxValue(double value);
    /// In a session the button works meanwhile.
    void setDoubleValue(double value);
    void setShowProgress(bool show);
    bool showProgress() const;
    void setShowDetail(bool show);
    ProgressState state() const;

    /// Nothing is cancelled yet then.
    void showPanel();
    void hidePanel();
    /// Shows what was set anew.
    void display();

    /// While a session lasts, the panel alone takes events.  Nothing is cancelled yet then.
    void beginModalSession();
    /// A panel that nobody cancelled stays for 2 seconds in all, so that it cannot merely flash: this waits for
    /// the rest of them.  Without a session only a log line.
    void endModalSession();

    /// What the button does.
    void cancel() { *_wasCancelled = true; }
    bool cancelled();

private:
    template <class Change>
    void change(Change change);
    std::shared_ptr<ProgressPanel> panel();
    void turn();

    const std::shared_ptr<std::atomic<bool>> _wasCancelled;  // shared with the button, which may live longer
    std::atomic<bool> _session = false;
    Clock::time_point _startTime;  // of the session; main thread

    mutable Mutex _mutex;
    std::shared_ptr<ProgressPanel> _panel LORVALE_GUARDED_BY(_mutex);  // null until needed
    ProgressState _state LORVALE_GUARDED_BY(_mutex);
    std::string _name LORVALE_GUARDED_BY(_mutex);
};

}  // namespace lorvale
