#pragma once
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/tls.h"

namespace lorvale {

class KTSocket;
class MessageHeaders;
class POP3Connection;

inline constexpr std::string_view kPOP3Exception = "POP3Exception";

/// A conversation with a server of mail cannot go on, or its spool cannot be kept.
class LORVALE_EXPORT POP3Exception : public NamedException {
public:
    explicit POP3Exception(std::string_view reason) : NamedException(kPOP3Exception, reason) {}
    ~POP3Exception() override;
};

/// The header of a message as the server gave it, decoded as far as it is asked for: to decode all of it costs
/// more than everything else about a small message.
class LORVALE_EXPORT POP3Header {
public:
    explicit POP3Header(std::string block);  ///< lines end in newlines
    /// The first value of a header, its key in lower case; an empty text when there is none.
    std::string firstTextForKey(std::string_view key) const;
    /// All of it, with an envelope line.
    std::shared_ptr<MessageHeaders> headers() const;

private:
    friend class POP3Connection;
    std::shared_ptr<MessageHeaders> decoded() const;
    std::string _block;
    std::vector<std::optional<std::string>> _usual;  // what everybody asks for, found in one walk
};

/// Hears how a retrieval goes, in the thread of the connection.  Any operation may throw, which ends it.
class LORVALE_EXPORT POP3ConnectionDelegate {
public:
    virtual ~POP3ConnectionDelegate();
    /// So many bytes since the last time: of every reply, and while a message comes every few thousand.
    virtual void connectionReceivedNumberOfBytes(POP3Connection& connection, std::size_t bytes);
    /// Before the text of the message is read.  The header, lent for the call, is null where the server gives
    /// none; the size is what the server's list says.
    virtual void connectionWillRetrieveMessageNumber(POP3Connection& connection, std::uint32_t number,
                                                     const POP3Header* header, std::uint64_t size);
    /// Before the entry is given to the spool.
    virtual void connectionDidRetrieveMessageNumber(POP3Connection& connection, std::uint32_t number);
};

/// Takes the entries that a connection makes of messages, each with its envelope line.  Throws a NamedException
/// when it cannot keep them.
class LORVALE_EXPORT POP3Spool {
public:
    virtual ~POP3Spool();
    virtual void write(std::string_view entry) = 0;
};

/// How a connection is kept from others' eyes.
enum class POP3Security : std::uint8_t {
    none,
    startTLS,  ///< from the server's greeting on; a server that does not offer it is given up (RFC 2595)
    tls,       ///< from the first byte (RFC 8314)
};

/// A blocking client of POP3 (RFC 1939), which makes entries of a flat mailbox of what it retrieves.
///
/// A command answers kOK for a reply that begins with "+OK", and kRefused for any other.  A connection that
/// breaks, times out, or sends what has no end throws a NamedException; then only abort() and the destructor
/// are left.  An argument with a line end in it throws POP3Exception before anything is sent.
///
/// In the standard dialect the dots that the server doubled are taken away, and negotiate() finds out what else
/// it offers: then commands are sent ahead (RFC 2449, section 6.6), and AUTH PLAIN serves in place of USER and
/// PASS. One thread at a time, but for shutdown().
class LORVALE_EXPORT POP3Connection {
public:
    static constexpr int kOK = 0, kRefused = 7;
    /// The longest message by default, in bytes; memory is taken for no more of it than what has come.
    static constexpr std::size_t kLargestMessage = std::size_t{1} << 30;
    /// How long a server may be silent.
    static constexpr std::chrono::seconds kTimeout{120};

    /// Null when the system has no socket left.
    [[nodiscard]] static std::unique_ptr<POP3Connection> init(MailDialect dialect = mailDialect());
    /// Over a socket that is connected already, where the greeting comes next; see readGreeting().
    explicit POP3Connection(std::unique_ptr<KTSocket> socket, MailDialect dialect = mailDialect());
    ~POP3Connection();
    POP3Connection(const POP3Connection&) = delete;
    POP3Connection& operator=(const POP3Connection&) = delete;

    /// The service "pop3", or where that does not answer "pop"; then reads the greeting.
    int connectToHost(const std::string& host);
    /// The same on a port (0: the service's), perhaps secured from the start.
    int connectToHost(const std::string& host, std::uint16_t port, POP3Security security = POP3Security::none,
                      const TLSSettings& tls = {});
    int readGreeting();
    /// Asks what the server offers and secures the connection where that is wanted and not done.  Throws
    /// POP3Exception where it cannot be had.
    void negotiate(POP3Security security = POP3Security::none, const TLSSettings& tls = {});
    /// Whether the server named that capability, or "SASL PLAIN" among its ways, to negotiate().
    bool offers(std::string_view capability) const;
    /// Passes on to the socket, which does nothing.
    void abort();
    /// Ends the connection under whatever waits for it.  Any thread.
    void shutdown() noexcept;

    int quit();
    int user(std::string_view name);
    int pass(std::string_view password);
    /// The argument is the name and the digest.
    int apop(std::string_view argument);
    int authPlain(std::string_view name, std::string_view password);
    int stat();
    /// Of one message, or for a negative number of all.
    int list(std::int64_t number);
    int dele(std::uint32_t number);

    /// Of the last stat().
    std::uint32_t messagesAvailable() const { return numberOfMessagesAvailable; }
    std::uint32_t sizeOfMessagesAvailable() const { return numberOfOctetsAvailable; }
    /// The numbers of all messages, ascending; asked for once.
    std::vector<std::uint32_t> list();
    /// By that list; 0 for an unknown number.
    std::uint64_t sizeOfMessageNumber(std::uint32_t number);
    /// From the number of a message to its unique identifier; nullopt when the server knows none.
    std::optional<std::map<std::uint32_t, std::string>> availableMessagesUsingUIDL();
    /// The header of a message, asked for once as long as all of them are not too much to remember.
    int top(std::uint32_t number);
    /// Of no message.  Null where the server gives none.
    std::shared_ptr<MessageHeaders> messageHeaderForMessageNumber(std::uint32_t number);
    void fetchMessageHeaders(std::span<const std::uint32_t> numbers);

    /// Retrieves one message.  Nothing happens for one without a size, or that the server refuses.
    void retr(std::uint32_t number, POP3Spool& toSpool);
    /// Retrieves these in their order, no more than the user default "POP3MaximumNumberToFetch" says, unless
    /// that is 0, and answers how many that are.  A failure ends it with a line in the log and the same answer:
    /// fetchFailure() tells.
    std::size_t fetchMessages(std::span<const std::uint32_t> numbers, POP3Spool& toSpool);
    /// What ended the last fetchMessages(); null when it came to its end.
    std::exception_ptr fetchFailure() const { return _fetchFailure; }
    void deleteMessages(std::span<const std::uint32_t> numbers);

    void setDelegate(POP3ConnectionDelegate* delegate) { _delegate = delegate; }  ///< borrowed; may be null
    POP3ConnectionDelegate* delegate() const { return _delegate; }
    /// A longer one ends the connection.
    void setLargestMessage(std::size_t bytes) { _largestMessage = bytes; }

private:
    KTSocket& socket();
    void takeSocket(std::unique_ptr<KTSocket> socket);
    std::string _readMultilineResponseWithMaxSize(std::size_t maxSize);
    void _readMultilineResponse(std::string& text, std::size_t maxSize);
    void _sendString(std::string_view text, std::string_view shown);
    const std::string& _getReplyLine();
    int _getReply();
    int _sendCommand(std::string_view command, std::string_view withArgument = {});
    int _sendSecret(std::string_view command, std::string_view secret);
    void connectToService(const std::string& host, const std::string& service, std::uint16_t orPort);
    void secure(const TLSSettings& tls);
    void readCapabilities();
    void readList();
    int readTop(std::uint32_t number);
    std::optional<POP3Header> headerOfMessageNumber(std::uint32_t number);
    void readMessage(std::uint32_t number, POP3Spool& toSpool);
    void forgetTop(std::uint32_t number);
    void forgetTops();
    void retrieveAll(std::span<const std::uint32_t> numbers, POP3Spool& toSpool);
    void tell(std::size_t bytes);

    const MailDialect _dialect;
    // All that were tried; the last one is in use.  None goes before this does, since another thread may end
    // it.
    std::vector<std::unique_ptr<KTSocket>> _sockets;
    std::atomic<KTSocket*> _socket = nullptr;
    std::atomic<bool> _isShutDown = false;
    std::optional<std::map<std::uint32_t, std::uint64_t>> _listResults;  // nullopt until asked
    std::map<std::uint32_t, std::optional<std::string>> _topResults;     // nullopt: refused
    std::size_t _topBytes = 0;                                           // in them
    int _state = 1;                                                      // what stat() has answered
    std::uint32_t numberOfMessagesAvailable = 0, numberOfOctetsAvailable = 0;
    std::string _hostname, _username;        // for the sender of a message that names none
    std::vector<std::string> _capabilities;  // in upper case
    bool _isSecured = false;
    std::size_t _largestMessage = kLargestMessage;
    POP3ConnectionDelegate* _delegate = nullptr;
    std::exception_ptr _fetchFailure;
    std::string _line, _text, _entry;  // the last reply, the message at hand; kept for their room
};

}  // namespace lorvale
