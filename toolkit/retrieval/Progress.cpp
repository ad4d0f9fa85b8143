#include "lorvale/toolkit/retrieval/progress.h"

namespace brindle {

namespace {

constexpr float kLeastGrowth = 0.001f;

}  // namespace

Progress::Progress(std::uint32_t ticks, Function report) : function(std::move(report)), frequency(ticks) {}

Progress::~Progress() = default;

void Progress::Step(std::uint32_t steps) {
    if (currentPhase != nullptr) currentPhase->done += steps;
}

float Progress::PercentComplete() const {
    float share = 100;
    float percent = 0;
    for (const Phase* phase = firstPhase; phase != nullptr && phase->total > 0; phase = phase->child) {
        share /= static_cast<float>(phase->total);
        percent += static_cast<float>(phase->done) * share;
    }
    return percent;
}

bool Progress::IsDue(float percent) const {
    return percent - lastPercent >= kLeastGrowth &&
           static_cast<std::uint64_t>(std::clock() - lastTime) >= frequency;
}

bool Progress::CheckNow() {
    if (cancelled) return true;
    const float percent = PercentComplete();
    if (!IsDue(percent)) return false;
    lastPercent = percent;
    lastTime = std::clock();
    cancelled = function(percent);
    return cancelled;
}

void Progress::Complete() {
    if (function == nullptr || cancelled || lastPercent >= 100) return;
    lastPercent = 100;
    function(100);
}

Phase::Phase(std::uint32_t steps, Progress& ofProgress)
    : total(steps), parent(ofProgress.currentPhase), progress(ofProgress) {
    (parent != nullptr ? parent->child : progress.firstPhase) = this;
    progress.currentPhase = this;
    progress.Check();  // what it answers is remembered
}

Phase::~Phase() {
    (parent != nullptr ? parent->child : progress.firstPhase) = nullptr;
    progress.currentPhase = parent;
    if (parent != nullptr) ++parent->done;
}

}  // namespace brindle
