#pragma once
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "lorvale/platform/log.h"

namespace lorvale::testing {

/// Keeps what is logged while it lives.
class LogCapture {
public:
    LogCapture() {
        _before = setLogSink([this](std::string_view line) {
            const std::lock_guard lock(_mutex);
            _lines.emplace_back(line);
        });
    }
    ~LogCapture() { setLogSink(std::move(_before)); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const {
        const std::lock_guard lock(_mutex);
        return _lines;
    }
    /// The lines since the last call.
    std::vector<std::string> take() {
        const std::lock_guard lock(_mutex);
        return std::exchange(_lines, {});
    }

private:
    mutable std::mutex _mutex;
    std::vector<std::string> _lines;
    LogSink _before;
};

}  // namespace lorvale::testing
