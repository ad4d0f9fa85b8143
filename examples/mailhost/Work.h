#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace mailhost {

/// Does some work on a mailbox or a message.  What the library logs meanwhile is told with this name before it,
/// and where the memory does not suffice, a Failure says for what, and of which size.  Main thread.
void workOn(const std::string& name, std::uint64_t bytes, const std::function<void()>& work);

/// Receives the library's log lines: shown as they come, or only mentioned at the end.
class LogLines {
public:
    explicit LogLines(bool shown);
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

private:
    void take(std::string_view line);

    const bool _shown;
    bool _spoke = false;  // the sink is called once at a time
};

}  // namespace mailhost
