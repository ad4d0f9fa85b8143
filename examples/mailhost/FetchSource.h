#pragma once
#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Arguments.h"
#include "lorvale/fetch.h"

namespace mailhost {

/// Somewhere that mail comes from, as `fetch` and `watch` see it.  Belongs to the main thread.
class FetchSource {
public:
    struct Outcome {
        std::size_t fetched = 0;  // from a server
        std::size_t routed = 0;   // into mailboxes
        std::size_t left = 0;     // that no mailbox has taken
        std::vector<std::string> failures;
    };

    virtual ~FetchSource();
    virtual std::string name() const = 0;
    /// Begins to fetch; the main loop does the rest.  A reason why not goes into the outcome.
    virtual void start() = 0;
    virtual bool isUnderWay() const = 0;
    /// Ends it as soon as can be; what has come stays.
    virtual void cancel() = 0;
    /// Of the last start().
    virtual Outcome outcome() const = 0;
    /// After the next start(), and every other, something calls `news` in the main loop when mail has come, and
    /// start() brings it.  Nothing for a source that has to be looked at now and then, as all may be.  `anew`:
    /// how often to make sure that the connection still stands.
    virtual void watch(std::function<void()> /*news*/, std::chrono::seconds /*anew*/) {}
};

using FetchSources = std::vector<std::unique_ptr<FetchSource>>;

// Sources of the command line, which no account tells of.
inline constexpr auto kSpool = Typed<std::string>{{.name = "--spool",
                                                   .placeholder = "FILE",
                                                   .help = "a flat file into which mail is delivered",
                                                   .takes = Takes::mailbox,
                                                   .repeats = true}};
inline constexpr auto kPop = textOption("--pop", "HOST[:PORT]", "a POP3 server");
inline constexpr auto kUser = textOption("--user", "NAME", "who one is there (your login name)");
inline constexpr auto kSecurities = std::to_array<std::string_view>({"none", "starttls", "tls"});
inline constexpr auto kSecurity =
    choiceOption("--security", "WORD", kSecurities, "how the connection is secured (none)");
inline constexpr auto kAuthorities =
    textOption("--authorities", "FILE", "certificates to trust in place of the system's");
inline constexpr auto kState =
    textOption("--state", "DIR", "where it is kept what was fetched, and mail on its way", Takes::folder);
inline constexpr auto kDelete = flag("--delete", "delete on the server what has arrived");
inline constexpr auto kAll = flag("--all", "fetch also what was fetched before");
// A password never is an argument, which every user of the machine can read.
inline constexpr auto kPasswordDescriptor =
    descriptorOption("--password-fd", "N", "read the password from this file descriptor");
inline constexpr auto kPasswordCommand =
    textOption("--password-command", "COMMAND", "take the first line that this command prints as the password");

/// Those of the command line, or else the user's accounts, all or those named.  `byClock` leaves out those of
/// all that are fetched by hand only.  Throws Failure for an account that is not there or that cannot be
/// fetched, and where there is nothing to fetch from.
FetchSources fetchSources(const Arguments& arguments, const std::vector<std::string>& accountNames,
                          bool byClock);

}  // namespace mailhost
