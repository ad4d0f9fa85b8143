#include "mail/stores/FetchLog.h"

#include <unistd.h>

#include <string>

#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/format.h"

namespace lorvale {

FetchLog::FetchLog(std::size_t messages, std::string_view mailbox) {
    const auto& defaults = Defaults::sharedInstance();
    if (!defaults.boolForKey("LogFetchData")) return;
    const auto folder = homeDirectory() + "/tmp/fetch_backup";
    const auto path = folder + (defaults.boolForKey("DebugFetch") ? "/debug_fetch_log.txt" : "/fetch_log.txt");
    auto status = makeDirectories(folder, 0700);
    if (status) _file = FileSystem::current().openForWriting(path, WriteMode::append, 0700, &status);
    if (!status) log("%@", status.text());
    write(formatText("Appending %d messages to %@\n", messages, mailbox));
}

FetchLog::~FetchLog() = default;

void FetchLog::add(Message& message, bool succeeded) {
    if (_file == nullptr) return;
    const auto headers = message.headers();
    const auto entry =
        formatText("%%@ <%@> %@[%@] appending message:\n\tTo: %%@\n\tFrom: %%@\n\tSubject:%%@\n\t%%@\n",
                   hostName(), processName(), ::getpid());
    write(formatText(entry, Date::now().descriptionWithCalendarFormat("%Y-%m-%d %H:%M:%S %z"),
                     headers->firstTextForKey("to"), headers->firstTextForKey("from"),
                     headers->firstTextForKey("subject"), succeeded ? "<<Succeeded>>" : "<<Failed!>>"));
}

void FetchLog::write(std::string_view text) {
    if (_file == nullptr) return;
    if (const auto written = _file->write(text); !written) {
        log("%@", written.text());
        _file.reset();
    }
}

}  // namespace lorvale
