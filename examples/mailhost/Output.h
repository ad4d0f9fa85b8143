#pragma once
#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>

namespace mailhost {

/// Something that the user has to be told, and a non-zero exit status.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Lines to standard output.  A pipe or file gets them in large pieces, but the first one at once and none much
/// later than its time, so that whoever reads them can start while the rest is being made.
class LineOutput {
public:
    /// Throws Failure when the line cannot be written, so that long work for a full disk ends early.
    void write(std::string_view line);

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point _nextFlush;
};

/// Throws Failure when something that was given to standard output did not get there, and nobody said so yet.
void finishOutput();

}  // namespace mailhost
