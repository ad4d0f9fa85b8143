#pragma once
#include <cstdint>
#include <ctime>
#include <functional>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

class Phase;

/// How far a long operation is, told to a function now and then, which may cancel it.
///
/// The work is a chain of nested phases.  Each one's total is the number of steps of which it is made, and the
/// phase within it fills one of them.  One thread.
class LORVALE_EXPORT Progress : public IAStruct {
public:
    /// Gets the percentage; true cancels.  Once it has answered true it is not called again.
    using Function = std::function<bool(float percent)>;

    /// Reports at most every `frequency` ticks of clock(), and only when the percentage has grown by 0.001.  A
    /// null function stands for one that never cancels.
    Progress(std::uint32_t frequency, Function function);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() override;

    /// Adds to the innermost phase.
    void Step(std::uint32_t steps);
    /// Reports if it is time to.  True if the operation is to end.
    bool Check() { return function != nullptr && CheckNow(); }
    bool StepCheck(std::uint32_t steps) {
        Step(steps);
        return Check();
    }
    float PercentComplete() const;
    /// Whether Check() would call the function now.
    bool IsReportDue() const { return function != nullptr && !cancelled && IsDue(PercentComplete()); }
    bool IsCancelled() const { return cancelled; }
    /// Reports 100, unless it has been.
    void Complete();

private:
    friend class Phase;
    bool IsDue(float percent) const;
    bool CheckNow();

    Phase* currentPhase = nullptr;  // the innermost
    Phase* firstPhase = nullptr;    // the outermost
    const Function function;        // may be null
    const std::uint32_t frequency;
    std::clock_t lastTime = 0;
    float lastPercent = -0.001f;  // so that the first check reports
    bool cancelled = false;
};

/// A stage of an operation, for as long as it lives.  Being made it reports, being left it is one step of the
/// phase around it.
class LORVALE_EXPORT Phase : public IAStruct {
public:
    Phase(std::uint32_t total, Progress& progress);
    Phase(const Phase&) = delete;
    Phase& operator=(const Phase&) = delete;
    ~Phase() override;
    /// Its steps are made once more.
    void Restart() { done = 0; }

private:
    friend class Progress;
    std::uint32_t done = 0;
    const std::uint32_t total;
    Phase* const parent;
    Phase* child = nullptr;
    Progress& progress;
};

}  // namespace brindle
