#pragma once
#include <functional>
#include <string_view>

#include "lorvale/values/format.h"

namespace lorvale {

/// Where log lines go: one line without its line end.  Called by any thread, one call at a time.  What a sink
/// itself logs goes to standard error.
using LogSink = std::function<void(std::string_view line)>;

/// Replaces the process-wide sink and answers the old one, in which no other thread is any more.  An empty
/// function brings back the first sink, which writes to standard error.
LORVALE_EXPORT LogSink setLogSink(LogSink sink);

/// Debug lines are dropped unless this is on; it is off at first.
LORVALE_EXPORT void setDebugLogging(bool on);
LORVALE_EXPORT bool debugLogging();

LORVALE_EXPORT void logLine(std::string_view line);

/// Logs a text with the marks of formatText().
template <class... Arguments>
void log(std::string_view text, const Arguments&... arguments) {
    logLine(formatText(text, arguments...));
}

/// The same for lines that matter only in a search for faults.
template <class... Arguments>
void debugLog(std::string_view text, const Arguments&... arguments) {
    if (debugLogging()) logLine(formatText(text, arguments...));
}

}  // namespace lorvale
