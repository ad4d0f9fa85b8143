#include "ConsoleProgress.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>

#include "Terminal.h"
#include "lorvale/defaults.h"

namespace mailhost {

namespace {

/// What the panel shows comes from a thread of the library, and is drawn by the main one, ten times a second.
class ConsolePanel : public lorvale::ProgressPanel {
public:
    ConsolePanel() : _shown(std::make_shared<Shown>()) {}
    ~ConsolePanel() override { ConsolePanel::hide(); }
    void update(const lorvale::ProgressState& state, std::string_view) override {
        const std::lock_guard lock(_shown->mutex);
        _shown->state = state;
    }
    void show() override {
        {
            const std::lock_guard lock(_shown->mutex);
            if (std::exchange(_shown->isVisible, true)) return;
        }
        drawLater(_shown);
    }
    void hide() override {
        {
            const std::lock_guard lock(_shown->mutex);
            if (!std::exchange(_shown->isVisible, false)) return;
        }
        ProgressBar::clear();
    }

private:
    struct Shown {
        std::mutex mutex;
        lorvale::ProgressState state;  // guarded by mutex, as is what follows
        bool isVisible = false;
    };

    static void drawLater(const std::shared_ptr<Shown>& shown) {
        lorvale::RunLoop::main()->performAfterDelay([shown] { draw(shown); }, std::chrono::milliseconds(100));
    }
    static void draw(const std::shared_ptr<Shown>& shown) {
        lorvale::ProgressState state;
        {
            const std::lock_guard lock(shown->mutex);
            if (!shown->isVisible) return;
            state = shown->state;
        }
        const auto range = state.maximum - state.minimum;
        const auto done = range > 0 ? std::clamp((state.value - state.minimum) / range, 0.0, 1.0) : 0.0;
        ProgressBar::drawLine(state.message, state.showsBar ? done : -1);
        drawLater(shown);
    }

    const std::shared_ptr<Shown> _shown;
};

}  // namespace

ConsoleProgress::ConsoleProgress() {
    auto& defaults = lorvale::Defaults::sharedInstance();
    const bool windows = defaults.canUseWindowKit();
    lorvale::setCurrentUserInterface(this);
    defaults.setCanUseWindowKit(windows);
}

ConsoleProgress::~ConsoleProgress() {
    lorvale::setCurrentUserInterface(nullptr);
}

std::unique_ptr<lorvale::ProgressPanel> ConsoleProgress::makeProgressPanel(std::function<void()> cancel) {
    if (!isTerminal(STDERR_FILENO)) return UserInterface::makeProgressPanel(std::move(cancel));
    return std::make_unique<ConsolePanel>();
}

}  // namespace mailhost
