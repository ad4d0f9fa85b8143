#pragma once
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/platform/exception.h"
#include "lorvale/values/data.h"

namespace lorvale {

inline constexpr std::string_view kSocketClosedException = "SocketClosedException";
inline constexpr std::string_view kSocketTimeoutException = "SocketTimeoutException";
inline constexpr std::string_view kSocketLimitException = "SocketLimitException";

/// The stream ended where more had to come: the peer closed it, or shutdown() did.
class LORVALE_EXPORT SocketClosedException : public NamedException {
public:
    explicit SocketClosedException(std::string_view reason) : NamedException(kSocketClosedException, reason) {}
    ~SocketClosedException() override;
};
/// The peer was silent for longer than setTimeout() allows.
class LORVALE_EXPORT SocketTimeoutException : public NamedException {
public:
    explicit SocketTimeoutException(std::string_view reason)
        : NamedException(kSocketTimeoutException, reason) {}
    ~SocketTimeoutException() override;
};
/// The peer sent a line longer than setLineLimit() allows.
class LORVALE_EXPORT SocketLimitException : public NamedException {
public:
    explicit SocketLimitException(std::string_view reason) : NamedException(kSocketLimitException, reason) {}
    ~SocketLimitException() override;
};

/// How the bytes of a socket travel: the seam behind which the system's connection stands, a layer of security
/// over it, or a host's or a test's own way to a peer.  One thread at a time, but for interrupt() and wake().
class LORVALE_EXPORT SocketTransport {
public:
    virtual ~SocketTransport();
    /// Waits until there are bytes, and answers how many it has put there; 0 at the end of the stream.
    virtual std::size_t readSome(std::span<std::uint8_t> into) = 0;
    /// Waits until some of the bytes of these pieces, in their order, are on their way, and answers how many:
    /// at least 1.  The pieces hold at least one byte.
    virtual std::size_t writeSome(std::span<const std::string_view> pieces) = 0;
    /// How many bytes a read gives at once because they lie here already.  Those in the system do not count.
    virtual std::size_t pending() const = 0;
    /// Says good-bye where the transport has a way to.  Throws nothing; waits a second at most.
    virtual void close() noexcept = 0;
    /// How long one wait for the peer may take; 0: for ever.
    virtual void setTimeout(std::chrono::milliseconds timeout);
    /// Ends what waits, and whatever comes after it, with SocketClosedException.  May be called by any thread.
    virtual void interrupt() noexcept;
    /// Waits until a read would not wait: bytes have come, the end, or a failure.  False when `atMost` has
    /// passed or wake() was called before; whoever cannot tell answers true at once.
    virtual bool waitForInput(std::chrono::milliseconds atMost);
    /// Ends a waitForInput(), the present one or else the next, and harms nothing.  May be called by any
    /// thread.
    virtual void wake() noexcept;
};

class SocketConnection;

/// A blocking client connection with a small read-ahead.  Failures of the system are GenericException with the
/// reasons "recv: ..." and "send: ...".  Waits for ever unless setTimeout() says otherwise; SIGPIPE never
/// reaches the host.  One thread at a time, but for shutdown() and wake().
class LORVALE_EXPORT KTSocket {
public:
    static constexpr std::size_t kLineLimit = 16 * 1024 * 1024;

    /// A new TCP socket; null when the system has none left.
    [[nodiscard]] static std::unique_ptr<KTSocket> socket();
    /// Takes over the descriptor of a connected stream; null when the system has no descriptors left.
    [[nodiscard]] static std::unique_ptr<KTSocket> initWithSocket(int descriptor);
    /// A connection that something else has made; not null.
    explicit KTSocket(std::unique_ptr<SocketTransport> transport);
    ~KTSocket();  ///< closes the connection
    KTSocket(const KTSocket&) = delete;
    KTSocket& operator=(const KTSocket&) = delete;

    /// Connects to the host's first address, or to the first one that answers.  Throws GenericException with a
    /// sentence for people, and SocketTimeoutException.  The time-out does not cover the look-up of the name.
    /// Only for what socket() made, once.  The protocol plays no role for a port.
    void connectToHost(const std::string& host, std::uint16_t withPort, std::string_view protocol = "tcp");
    /// To the port that the system's table of services gives for the name; throws GenericException for a name
    /// that is not there.
    void connectToHost(const std::string& host, const std::string& withService,
                       const std::string& protocol = "tcp");

    /// Appends one line with its CRLF.  Always true: a stream that ends before throws SocketClosedException,
    /// and a line (with its end) longer than the limit SocketLimitException; nothing is appended then, and what
    /// was read stays pending.
    bool readLine(std::string& appendTo);
    bool readLine(ByteBuffer& appendTo);
    /// Appends exactly that many bytes, whatever they are.  At the end of the stream and after a failure of the
    /// system false, and nothing is appended.  Memory grows with what comes, not with what was claimed.
    bool readBytes(std::string& appendTo, std::size_t length);
    bool readBytes(ByteBuffer& appendTo, std::size_t length);
    /// What is there, at least one byte, at most the maximum, for which 0 means 4096; nullopt at the end of the
    /// stream.  What was read ahead comes first, without another read.
    [[nodiscard]] std::optional<Data> readAvailableData(std::size_t maximum = 0);

    /// Waits until something has come that was not read yet, the end included, for `atMost` at most, whatever
    /// setTimeout() says.  False when nothing has, or when wake() was called before.
    bool waitForInput(std::chrono::milliseconds atMost);
    /// Ends a waitForInput(), the present one or else the next; the connection goes on.  May be called by any
    /// thread while the object lives.
    void wake() noexcept;

    /// Sends all of it.
    void writeData(std::string_view bytes);
    void writeData(const Data& bytes) { writeData(bytes.view()); }
    /// Sends all pieces, one behind the other, in as few writes as it takes.
    void writeData(std::span<const std::string_view> pieces);

    /// Does nothing; shutdown() ends a connection.
    void abort() {}
    /// Ends a blocked operation of another thread, and all further ones, with SocketClosedException.  May be
    /// called by any thread while the object lives.
    void shutdown() noexcept;

    /// Puts a layer between the socket and what carried its bytes so far, which it may use as long as it lives.
    /// Throws InvalidArgumentException where the peer has sent more than was read: such bytes came without
    /// the layer, and whoever took them for the layer's would be deceived.
    using LayerMaker = std::function<std::unique_ptr<SocketTransport>(SocketTransport& below)>;
    void addLayer(const LayerMaker& make);

    /// How long one wait may last: for a connection, for a byte to come, for room to send one.  0, as at first:
    /// for ever.
    void setTimeout(std::chrono::milliseconds timeout);
    std::chrono::milliseconds timeout() const { return _timeout; }
    /// The most bytes of a line, its CRLF with it.  kLineLimit at first.
    void setLineLimit(std::size_t bytes) { _lineLimit = bytes; }

    /// What was read ahead and not yet asked for.
    std::string_view pendingBytes() const { return _pendingBytes.view().substr(_taken); }

private:
    explicit KTSocket(std::unique_ptr<SocketConnection> connection);

    std::size_t lineLength();
    bool readAhead();
    std::string_view takePending(std::size_t atMost);

    SocketConnection* _socket = nullptr;  // the system's connection, where that is the lowest transport
    SocketTransport* const _lowest;       // never changes, so that any thread may shut it down or wake it
    std::vector<std::unique_ptr<SocketTransport>> _transports;  // the lowest first; the last one is used
    ByteBuffer _pendingBytes;                                   // read beyond the last line
    std::size_t _taken = 0;                                     // of these
    std::size_t _lineLimit = kLineLimit;
    std::chrono::milliseconds _timeout{0};
};

}  // namespace lorvale
