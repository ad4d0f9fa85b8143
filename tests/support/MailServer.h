#pragma once
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/ServerScript.h"

namespace lorvale::testing {

/// A real POP3 and IMAP server on the loopback interface, as tests/support/dovecot starts it; that script tells
/// what it offers.  It ends with this object, or with the process.
///
///     const MailServer server;
///     if (!server.runs()) GTEST_SKIP() << server.whyNot();
class MailServer {
public:
    explicit MailServer(std::vector<std::string> settings = {});
    ~MailServer();
    MailServer(const MailServer&) = delete;
    MailServer& operator=(const MailServer&) = delete;

    /// False where the server is not installed; one that does not start although it is there throws
    /// std::runtime_error.
    bool runs() const { return whyNot().empty(); }
    const std::string& whyNot() const { return _script.whyNot(); }
    /// "pop3", "pop3s", "imap", "imaps".
    std::uint16_t port(const std::string& protocol) const { return _script.port(protocol); }
    std::filesystem::path folder() const { return _script.told("folder"); }
    std::filesystem::path certificate() const { return folder() / "cert.pem"; }
    std::string log() const;

    /// Delivers a message to "anna" or "bert": its bytes, with bare newlines, become a file of the Maildir. The
    /// server lists messages in the order of delivery.
    void deliver(const std::string& user, std::string_view message);
    /// The names of the files of the messages that the server still has, sorted, which is the order of
    /// delivery.
    std::vector<std::filesystem::path> messagesOf(const std::string& user) const;

private:
    const ServerScript _script;
    int _delivered = 0;
};

}  // namespace lorvale::testing
