#pragma once
#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Arguments.h"
#include "lorvale/message.h"

/// How letters leave this program: the options that say so, and the sending.

namespace mailhost {

inline constexpr auto kWays = std::to_array<std::string_view>({"smtp", "sendmail"});
inline constexpr auto kServerSecurities = std::to_array<std::string_view>({"none", "starttls", "tls"});

inline constexpr auto kVia =
    choiceOption("--via", "WAY", kWays, "by a mail server, or by the mailer of this machine");
inline constexpr auto kServer = textOption("--host", "HOST[:PORT]", "the mail server");
inline constexpr auto kServerSecurity =
    choiceOption("--security", "KIND", kServerSecurities,
                 "secure the connection, from its start (tls) or before the letter");
inline constexpr auto kServerAuthorities =
    textOption("--authorities", "FILE", "trust these certificates in place of the system's", Takes::file);
inline constexpr auto kServerUser = textOption("--user", "NAME", "log in; the password is asked for");
inline constexpr auto kServerPasswordFile =
    textOption("--password-file", "FILE", "the password is the first line of a file", Takes::file);
inline constexpr auto kServerTimeout =
    numberOption("--timeout", "SECONDS", "how long the server may be silent, 60 unless said otherwise");
inline constexpr auto kOutgoingOptions = std::to_array<Parameter>(
    {kVia, kServer, kServerSecurity, kServerAuthorities, kServerUser, kServerPasswordFile, kServerTimeout});

/// Sends a finished letter to its recipients and the blind ones, and tells what came of it: the exit status.
/// Throws UsageError and Failure for what keeps it from being tried.
int sendLetter(const std::shared_ptr<lorvale::Message>& letter, const std::vector<std::string>& blindRecipients,
               const Arguments& arguments);

}  // namespace mailhost
