#include "lorvale/platform/progressor.h"

#include <thread>
#include <utility>

#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"

namespace lorvale {

const std::shared_ptr<Progressor>& Progressor::newWithTitle(std::string_view title, std::string_view message) {
    static const auto& shared = *new std::shared_ptr<Progressor>(std::make_shared<Progressor>());
    shared->reset();
    shared->setTitle(title, message);
    return shared;
}

Progressor::Progressor() : _wasCancelled(std::make_shared<std::atomic<bool>>(false)) {
    reset();
}

Progressor::Progressor(std::string_view title, std::string_view message) : Progressor() {
    setTitle(title, message);
}

Progressor::~Progressor() = default;

/// Changes what is shown, and tells the panel where there is one already.
template <class Change>
void Progressor::change(Change change) {
    std::shared_ptr<ProgressPanel> panel;
    ProgressState state;
    std::string name;
    {
        const MutexLock lock(_mutex);
        change(_state);
        panel = _panel;
        if (panel == nullptr) return;
        state = _state;
        name = _name;
    }
    panel->update(state, name);  // without the lock: the host may take its time
}

void Progressor::reset() {
    change([](ProgressState& state) {
        state = {};
        state.title = processName();
        state.buttonTitle = LVLocalizedString("Cancel", "The button of a panel that shows progress");
    });
}

void Progressor::setTitle(std::optional<std::string_view> title) {
    change([&](ProgressState& state) { state.title = title ? std::string(*title) : processName(); });
}

void Progressor::setTitle(std::optional<std::string_view> title, std::string_view message) {
    setTitle(title);
    setMessage(message);
}

void Progressor::setName(std::string_view name) {
    const MutexLock lock(_mutex);
    _name = name;
}

void Progressor::setMessage(std::string_view message) {
    change([&](ProgressState& state) { state.message = message; });
}

void Progressor::setDetailMessage(std::string_view message) {
    change([&](ProgressState& state) { state.detail = message; });
}

void Progressor::setButtonTitle(std::string_view title) {
    change([&](ProgressState& state) { state.buttonTitle = title; });
}

void Progressor::setButtonEnabled(bool enabled) {
    change([&](ProgressState& state) { state.isButtonEnabled = enabled; });
}

void Progressor::setMinValue(double value) {
    change([&](ProgressState& state) { state.minimum = value; });
}

void Progressor::setMaxValue(double value) {
    change([&](ProgressState& state) { state.maximum = value; });
}

void Progressor::setDoubleValue(double value) {
    change([&](ProgressState& state) { state.value = value; });
    turn();
}

void Progressor::setShowProgress(bool show) {
    change([&](ProgressState& state) { state.showsBar = show; });
}

bool Progressor::showProgress() const {
    return state().showsBar;
}

void Progressor::setShowDetail(bool show) {
    change([&](ProgressState& state) { state.showsDetail = show; });
}

ProgressState Progressor::state() const {
    const MutexLock lock(_mutex);
    return _state;
}

std::shared_ptr<ProgressPanel> Progressor::panel() {
    {
        const MutexLock lock(_mutex);
        if (_panel != nullptr) return _panel;
    }
    std::shared_ptr<ProgressPanel> made =
        currentUserInterface().makeProgressPanel([cancelled = _wasCancelled] { *cancelled = true; });
    const MutexLock lock(_mutex);
    if (_panel == nullptr) _panel.swap(made);  // of two threads the first one's
    return _panel;
}

void Progressor::showPanel() {
    *_wasCancelled = false;
    const auto shown = panel();
    display();
    shown->show();
}

void Progressor::hidePanel() {
    panel()->hide();
}

void Progressor::display() {
    change([](ProgressState&) {});
}

void Progressor::beginModalSession() {
    *_wasCancelled = false;
    _startTime = Clock::now();
    const auto shown = panel();
    display();
    shown->beginModalSession();
    _session = true;
}

void Progressor::endModalSession() {
    if (!_session.exchange(false)) {
        log("Warning: No matching beginModalSession for Progressor %#x",
            reinterpret_cast<std::uintptr_t>(this));
        return;
    }
    const auto shown = panel();
    shown->endModalSession();
    if (!*_wasCancelled) std::this_thread::sleep_until(_startTime + std::chrono::seconds(2));
    shown->hide();
}

/// Lets the button work while the main thread is busy.
void Progressor::turn() {
    if (_session && RunLoop::isMainThread()) panel()->turnModalSession();
}

bool Progressor::cancelled() {
    turn();
    return *_wasCancelled;
}

}  // namespace lorvale
