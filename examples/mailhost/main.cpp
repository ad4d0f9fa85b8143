/// mailhost: a small complete host of the library on the console.  It shows what a host does: it makes the
/// settings of the run, sets a user agent, drives the main run loop, and reads mail through the public headers.

#include <cstdio>
#include <exception>

#include "Commands.h"
#include "ConsoleAgent.h"
#include "Mailbox.h"
#include "Terminal.h"
#include "lorvale/message.h"
#include "lorvale/platform.h"
#include "lorvale/values/encoding.h"

namespace {

using namespace mailhost;

void applySettings(const Options& options) {
    // Mail of today has UTF-8 in its headers where it is not ASCII; what is not UTF-8 reads as Latin 1.
    lorvale::setDefaultCStringEncoding(lorvale::StringEncoding::utf8);
    if (options.homeDirectory) lorvale::setHomeDirectory(*options.homeDirectory);
    if (options.configDirectory) lorvale::setConfigurationDirectory(*options.configDirectory);
    for (const auto& [key, value] : options.defaults) {
        lorvale::UserDefaults::standard().setArgument(key, value);
    }
}

int run(const Options& options) {
    switch (options.command) {
        case Command::check:
            return runCheck(options);
        case Command::info:
            return runInfo(options);
        case Command::list:
            return runList(options);
        case Command::show:
            return runShow(options);
    }
    return 1;
}

int complain(std::string_view text, int status) {
    ProgressBar::clear();
    std::fprintf(stderr, "mailhost: %s\n", printableLine(text).c_str());
    return status;
}

/// The command is the first call of the main run loop, so that whatever the library asks of the main thread
/// meanwhile is served behind it.
int runOnMainLoop(const Options& options) {
    int status = 1;
    const auto loop = lorvale::RunLoop::main();
    loop->perform([&] {
        try {
            status = run(options);
        } catch (const std::exception& failure) {
            status = complain(failure.what(), 1);
        }
    });
    while (loop->dispatch()) continue;
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    prepareLocale();
    try {
        const auto options = parseOptions({argv + 1, static_cast<std::size_t>(argc > 0 ? argc - 1 : 0)});
        if (options.help) {
            std::fwrite(usageText().data(), 1, usageText().size(), stdout);
            return 0;
        }
        applySettings(options);
        ConsoleAgent agent;
        lorvale::Message::setUserAgent(&agent);
        int status = 0;
        {
            const LogLines logLines(options.verbose);
            status = runOnMainLoop(options);
        }
        lorvale::Message::setUserAgent(nullptr);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) return complain("cannot write the output", 1);
        return status;
    } catch (const UsageError& error) {
        complain(error.what(), 2);
        std::fputs("Try \"mailhost --help\".\n", stderr);
        return 2;
    } catch (const std::exception& failure) {
        return complain(failure.what(), 1);
    }
}
