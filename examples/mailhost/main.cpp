/// mailhost: a small complete host of the library on the console.  It shows what a host does: it makes the
/// settings of the run, sets a user agent, drives the main run loop, and reads mail through the public headers.

#include <cstdio>
#include <exception>
#include <new>
#include <optional>

#include "Accounts.h"
#include "Commands.h"
#include "ConsoleAgent.h"
#include "Documents.h"
#include "Output.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/platform.h"
#include "lorvale/values/encoding.h"

namespace {

using namespace mailhost;

void applySettings(const Arguments& arguments) {
    // Mail of today has UTF-8 in its headers where it is not ASCII; what is not UTF-8 reads as Latin 1.
    lorvale::setDefaultCStringEncoding(lorvale::StringEncoding::utf8);
    if (const auto home = arguments.value(kHome)) lorvale::setHomeDirectory(*home);
    if (const auto folder = arguments.value(kConfig)) lorvale::setConfigurationDirectory(*folder);
    // Words of any script, and not those of ASCII alone; -o IndexAnalysis=Eng1 shows these.
    lorvale::UserDefaults::standard().registerDefaults(
        lorvale::PropertyList::Dictionary{{"IndexAnalysis", "Uni1"}});
    for (const auto& [key, value] : arguments.values(kDefault)) {
        lorvale::UserDefaults::standard().setArgument(key, value);
    }
    const auto name = lorvale::UserDefaults::standard().stringForKey("MailDialect").value_or("standard");
    const auto dialect = lorvale::mailDialectNamed(name);
    if (!dialect) throw UsageError("MailDialect is \"classic\" or \"standard\", not \"" + name + "\"");
    lorvale::setMailDialect(*dialect);
    lorvale::TarnMailBody::setTarCommand("/bin/tar");
    if (arguments.has(kOffline)) workOffline();
}

int complain(std::string_view text, int status) {
    say("mailhost: " + std::string(text));
    return status;
}

/// The command is the first call of the main run loop, so that whatever the library asks of the main thread
/// meanwhile is served behind it.
int runOnMainLoop(const Arguments& arguments) {
    int status = 1;
    const auto loop = lorvale::RunLoop::main();
    loop->perform([&] {
        try {
            status = arguments.command()->run(arguments);
        } catch (const UsageError& error) {
            status = complain(error.what(), 2);
        } catch (const std::bad_alloc&) {
            status = complain("not enough memory", 1);
        } catch (const std::exception& failure) {
            status = complain(failure.what(), 1);
        }
    });
    while (loop->dispatch()) continue;
    return status;
}

int runCommand(const Arguments& arguments) {
    applySettings(arguments);
    ConsoleAgent agent;
    lorvale::Message::setUserAgent(&agent);
    int status = 0;
    {
        const LogLines logLines(arguments.has(kVerbose));
        status = runOnMainLoop(arguments);
    }
    lorvale::Message::setUserAgent(nullptr);
    return status;
}

std::string version() {
    return std::string(program.name) + " (" + lorvale::Message::verboseVersion() + ")";
}

std::string document(std::string_view kind) {
    if (kind == "man") return manualPage(program, lorvale::Message::verboseVersion());
    return kind == "bash" ? bashCompletion(program) : zshCompletion(program);
}

/// What the command line asks to be told instead of running a command; nullopt when it asks for none.
std::optional<std::string> information(const Arguments& arguments) {
    if (arguments.has(kHelp)) return helpText(program, arguments.command(), outputColumns());
    if (arguments.has(kVersion)) return version() + "\n";
    if (const auto kind = arguments.value(kGenerate)) return document(*kind);
    return std::nullopt;
}

/// The output counts as written only when all of it is.
int finish(int status) {
    try {
        finishOutput();
        return status;
    } catch (const Failure& failure) {
        return complain(failure.what(), 1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    prepareLocale();
    Arguments arguments;
    try {
        arguments.read(program, {argv + 1, static_cast<std::size_t>(argc > 0 ? argc - 1 : 0)});
        if (const auto text = information(arguments)) {
            std::fwrite(text->data(), 1, text->size(), stdout);
            return finish(0);
        }
        arguments.checkComplete();
        return finish(runCommand(arguments));
    } catch (const UsageError& error) {
        complain(error.what(), 2);
        const auto* const command = arguments.command();
        say("Try \"mailhost " + (command != nullptr ? std::string(command->name) + " " : "") + "--help\".");
        return 2;
    } catch (const std::exception& failure) {
        return complain(failure.what(), 1);
    }
}
