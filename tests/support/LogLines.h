#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/platform/log.h"

namespace lorvale::testing {

/// Catches what is logged during its life.  One at a time.
class LogLines {
public:
    LogLines() : _before(setLogSink([this](std::string_view line) { _lines.emplace_back(line); })) {}
    ~LogLines() { setLogSink(_before); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    /// The lines since the last call.
    std::vector<std::string> take() { return std::exchange(_lines, {}); }

private:
    std::vector<std::string> _lines;
    LogSink _before;
};

}  // namespace lorvale::testing
