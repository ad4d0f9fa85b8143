#pragma once
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/socket.h"
#include "lorvale/platform/tls.h"

namespace lorvale {

inline constexpr std::string_view kSMTPTransientException = "SMTPTransientException";
inline constexpr std::string_view kSMTPPermanentException = "SMTPPermanentException";

/// The server says no for now; the reason is its reply.
class LORVALE_EXPORT SMTPTransientException : public NamedException {
public:
    explicit SMTPTransientException(std::string_view reply) : NamedException(kSMTPTransientException, reply) {}
    ~SMTPTransientException() override;
};
/// The server says no, or something that is no reply; the reason is what it said.
class LORVALE_EXPORT SMTPPermanentException : public NamedException {
public:
    explicit SMTPPermanentException(std::string_view reply) : NamedException(kSMTPPermanentException, reply) {}
    ~SMTPPermanentException() override;
};

/// How to reach a server.  Plain and without a login unless the host says otherwise.
struct SMTPSettings {
    enum class Security {
        none,
        startTLS,   ///< by the protocol's word for it; without that, and without TLS, no mail
        fromStart,  ///< TLS before the first word, on the port for that
    };
    Security security = Security::none;
    TLSSettings tls{};
    /// For a login, where the name is not empty.  They are readable on the way unless the connection is
    /// secured.
    std::string userName{}, password{};
    std::chrono::milliseconds timeout{0};  ///< of one wait for the server; 0: for ever
};

/// Whom a mail is from and whom it is for, and what a server wants to know of it.
struct SMTPEnvelope {
    std::string sender;                   ///< a pure address, or empty
    std::vector<std::string> recipients;  ///< pure addresses
    std::size_t size = 0;                 ///< of the text as it is sent; 0: not known
    bool has8Bit = false;                 ///< whether the text has bytes above 0x7F
};
struct SMTPRefusal {
    std::string recipient, reply;
};

struct SMTPExtensions;

/// A conversation with a mail server, RFC 5321.  Blocking; one thread at a time, but for shutdown().  After an
/// exception other than the two above the connection serves no more.
///
/// Classic: HELO, and the first line of a reply is all of it.  Its further lines are taken for the replies to
/// the commands that follow.  Standard: EHLO, or HELO where the server does not know that; whole replies;
/// PIPELINING, SIZE, 8BITMIME, SMTPUTF8, STARTTLS, and AUTH by PLAIN and LOGIN.  Only there STARTTLS and a
/// login are to be had: settings that ask for them otherwise throw InvalidArgumentException.
///
/// Commands are sent when a reply is read, and text in large pieces.
class LORVALE_EXPORT SMTPConnection {
public:
    /// The most bytes of one reply.
    static constexpr std::size_t kReplyLimit = 64 * 1024;
    /// How much of a text has been sent.
    using Progress = std::function<void(std::size_t bytes)>;

    /// Null when no socket can be made.
    [[nodiscard]] static std::unique_ptr<SMTPConnection> init(const SMTPSettings& settings = {},
                                                              MailDialect dialect = mailDialect());
    /// Over a socket that the host has made.
    explicit SMTPConnection(std::unique_ptr<KTSocket> socket, SMTPSettings settings = {},
                            MailDialect dialect = mailDialect());
    ~SMTPConnection();
    SMTPConnection(const SMTPConnection&) = delete;
    SMTPConnection& operator=(const SMTPConnection&) = delete;

    /// Connects ("host", "host:port", "[address]:port"; else the port of the service), and begins the
    /// conversation.  Throws what KTSocket and startTLS() throw, and the two above.
    void connectToHost(const std::string& host);
    /// The same without connecting: greeting, security, and who we are.
    void beginConversation(const std::string& host);

    // Each sends a command and answers the class of the reply, the first digit, 1 to 3.  They throw
    // SMTPTransientException for class 4 and SMTPPermanentException for all others; standard also for a class
    // that is no answer to the command.  An address with a line end in it throws InvalidArgumentException.
    int mailFrom(std::string_view address);
    int rcptTo(std::string_view address);
    int startData();
    int endData();
    int quit();

    // The text, behind startData().  Lines end with a newline alone or with CRLF; a dot at the start of a line
    // is doubled.  Each call starts a line, and ends the last one where that is open; classic takes a CRLF at
    // the very end for part of an open line.  Both answer 2 and read no reply.
    int sendLine(std::string_view line);
    int sendData(std::string_view bytes, const Progress& progress = {});

    /// Standard only: the commands up to startData() in as few round trips as the server allows.  Answers the
    /// recipients that it refused; unless that is all of them, it waits for the text now.  Throws when it
    /// refuses the sender, the size, or the text.
    std::vector<SMTPRefusal> startMail(const SMTPEnvelope& envelope);

    /// Ends what another thread waits for, as KTSocket::shutdown().
    void shutdown() noexcept { _socket->shutdown(); }

private:
    struct Reply;

    void _hello(const std::string& name);
    void helloStandard(const std::string& name);
    void secure(const std::string& host);
    void logIn();
    void _sendString(std::string_view text);
    int _sendCommand(std::string_view text, std::string_view withArgument = {}, int wanted = 2);
    void flush();

    std::string path(std::string_view address) const;
    std::string mailCommand(const SMTPEnvelope& envelope) const;
    void exchange(std::span<const std::string> commands,
                  const std::function<bool(std::size_t, const Reply&)>& onReply);

    int _getReply(int wanted);
    int classicReply();
    Reply standardReply();
    static int check(const Reply& reply, int wanted);
    std::string _getReplyLine();
    bool readMore();
    void refuseUnasked() const;

    const std::unique_ptr<KTSocket> _socket;
    std::string _pendingData;  // received behind the last reply line
    std::string _outgoing;     // not sent yet
    bool _hasMail = false;     // one whose text has not ended
    const SMTPSettings _settings;
    const MailDialect _dialect;
    std::unique_ptr<SMTPExtensions> _extensions;  // what the server offers
};

}  // namespace lorvale
