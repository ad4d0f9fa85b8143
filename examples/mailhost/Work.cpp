#include "Work.h"

#include <new>
#include <stdexcept>
#include <utility>

#include "ConsoleAgent.h"
#include "Output.h"
#include "Terminal.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/run_loop.h"

namespace mailhost {

namespace {

const std::string* nameOfWork = nullptr;  // the main thread's

// Said of every mailbox that is new, which is nothing to point a user to.
constexpr std::string_view kRoutine = "rebuilding table of contents for ";

class NamedWork {
public:
    explicit NamedWork(const std::string& name) : _before(std::exchange(nameOfWork, &name)) {}
    ~NamedWork() { nameOfWork = _before; }
    NamedWork(const NamedWork&) = delete;
    NamedWork& operator=(const NamedWork&) = delete;

private:
    const std::string* _before;
};

[[noreturn]] void complainAboutMemory(const std::string& name, std::uint64_t bytes) {
    throw Failure("not enough memory for " + name + " of " + groupedNumber(bytes) + " bytes");
}

}  // namespace

void workOn(const std::string& name, std::uint64_t bytes, const std::function<void()>& work) {
    const NamedWork named(name);
    try {
        work();
    } catch (const std::bad_alloc&) {
        complainAboutMemory(name, bytes);
    } catch (const std::length_error&) {  // more than any memory could hold
        complainAboutMemory(name, bytes);
    }
}

LogLines::LogLines(bool shown) : _shown(shown) {
    lorvale::setDebugLogging(shown);
    lorvale::setLogSink([this](std::string_view line) { take(line); });
}

LogLines::~LogLines() {
    lorvale::setLogSink({});
    if (_spoke && !_shown) say("mailhost: the library logged something; --verbose shows it");
}

void LogLines::take(std::string_view line) {
    _spoke = _spoke || !line.starts_with(kRoutine);
    if (!_shown) return;
    std::string text = "lorvale: ";
    if (lorvale::RunLoop::isMainThread() && nameOfWork != nullptr) text += *nameOfWork + ": ";
    say(text + std::string(line));
}

}  // namespace mailhost
