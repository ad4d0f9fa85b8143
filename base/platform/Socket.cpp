#include "lorvale/platform/socket.h"

#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <utility>

#include "base/platform/SocketConnection.h"
#include "lorvale/values/format.h"

namespace lorvale {

namespace {

constexpr std::size_t kReadAhead = 16 * 1024;
constexpr std::size_t kLargeRead = 256 * 1024;
constexpr std::size_t kUsualRead = 4096;  // where a caller names no maximum

std::uint16_t portOfService(const std::string& service, const std::string& protocol) {
    servent entry{};
    servent* found = nullptr;
    std::array<char, 4096> names;
    if (::getservbyname_r(service.c_str(), protocol.c_str(), &entry, names.data(), names.size(), &found) != 0 ||
        found == nullptr)
        throw GenericException(
            formatText("Can't determine port to connect to host with.  Make sure %@ is a "
                       "valid TCP/IP service name.",
                       service));
    return ntohs(static_cast<std::uint16_t>(found->s_port));
}

}  // namespace

SocketClosedException::~SocketClosedException() = default;
SocketTimeoutException::~SocketTimeoutException() = default;
SocketLimitException::~SocketLimitException() = default;

SocketTransport::~SocketTransport() = default;
void SocketTransport::setTimeout(std::chrono::milliseconds) {}
void SocketTransport::interrupt() noexcept {}
bool SocketTransport::waitForInput(std::chrono::milliseconds) {
    return true;
}
void SocketTransport::wake() noexcept {}

std::unique_ptr<KTSocket> KTSocket::socket() {
    auto connection = SocketConnection::make();
    return connection ? std::unique_ptr<KTSocket>(new KTSocket(std::move(connection))) : nullptr;
}

std::unique_ptr<KTSocket> KTSocket::initWithSocket(int descriptor) {
    auto connection = SocketConnection::over(Descriptor(descriptor));
    return connection ? std::unique_ptr<KTSocket>(new KTSocket(std::move(connection))) : nullptr;
}

KTSocket::KTSocket(std::unique_ptr<SocketConnection> connection)
    : KTSocket(std::unique_ptr<SocketTransport>(connection.get())) {
    _socket = connection.release();
}

KTSocket::KTSocket(std::unique_ptr<SocketTransport> transport) : _lowest(transport.get()) {
    assert(transport != nullptr);
    _transports.push_back(std::move(transport));
}

KTSocket::~KTSocket() {
    for (; !_transports.empty(); _transports.pop_back()) _transports.back()->close();
}

void KTSocket::connectToHost(const std::string& host, std::uint16_t withPort, std::string_view) {
    if (_socket == nullptr || _transports.size() > 1)
        throw InvalidArgumentException("This socket's way to its peer is settled.");
    _socket->connectTo(host, withPort);
}

void KTSocket::connectToHost(const std::string& host, const std::string& withService,
                             const std::string& protocol) {
    connectToHost(host, portOfService(withService, protocol), protocol);
}

bool KTSocket::readLine(std::string& appendTo) {
    const std::size_t length = lineLength();
    appendTo.append(takePending(length));
    return true;
}

bool KTSocket::readLine(ByteBuffer& appendTo) {
    const std::size_t length = lineLength();
    appendTo.append(takePending(length));
    return true;
}

/// Reads on until a line is pending, and answers its length with its end.
std::size_t KTSocket::lineLength() {
    for (std::size_t searched = 0;;) {
        const auto pending = pendingBytes();
        const std::size_t end = pending.find("\r\n", searched);
        const bool isWhole = end != std::string_view::npos;
        if (isWhole ? end + 2 > _lineLimit : pending.size() >= _lineLimit)
            throw SocketLimitException(
                formatText("The peer has sent a line of more than %d bytes.", _lineLimit));
        if (isWhole) return end + 2;
        searched = pending.empty() ? 0 : pending.size() - 1;  // the last byte may be the first of the end
        if (!readAhead())
            throw SocketClosedException(pending.empty()
                                            ? "The peer has closed the connection."
                                            : "The peer has closed the connection in the middle of a line.");
    }
}

/// One read behind the pending bytes; false at the end of the stream.
bool KTSocket::readAhead() {
    if (_taken > 0) {
        const auto rest = pendingBytes();
        std::ranges::copy(rest, _pendingBytes.bytes());
        _pendingBytes.truncate(rest.size());
        _taken = 0;
    }
    std::uint8_t* room = _pendingBytes.reserve(kReadAhead);
    const std::size_t count = _transports.back()->readSome({room, kReadAhead});
    _pendingBytes.commit(count);
    return count > 0;
}

/// The view is good until the next read.
std::string_view KTSocket::takePending(std::size_t atMost) {
    const auto taken = pendingBytes().substr(0, atMost);
    _taken += taken.size();
    return taken;
}

bool KTSocket::readBytes(std::string& appendTo, std::size_t length) {
    ByteBuffer bytes;
    if (!readBytes(bytes, length)) return false;
    appendTo.append(bytes.view());
    return true;
}

bool KTSocket::readBytes(ByteBuffer& appendTo, std::size_t length) {
    const std::size_t before = appendTo.size();
    try {
        appendTo.append(takePending(length));
        while (appendTo.size() - before < length) {
            const std::size_t wanted = std::min(length - (appendTo.size() - before), kLargeRead);
            std::uint8_t* room = appendTo.reserve(wanted);
            const std::size_t count = _transports.back()->readSome({room, wanted});
            appendTo.commit(count);
            if (count == 0) {
                appendTo.truncate(before);
                return false;
            }
        }
        return true;
    } catch (const GenericException&) {
        appendTo.truncate(before);
        return false;
    } catch (...) {
        appendTo.truncate(before);
        throw;
    }
}

std::optional<Data> KTSocket::readAvailableData(std::size_t maximum) {
    const std::size_t wanted = maximum == 0 ? kUsualRead : maximum;
    if (!pendingBytes().empty()) return Data::copyOf(takePending(wanted));
    const std::size_t size = std::min(wanted, kLargeRead);
    ByteBuffer bytes(size);
    const std::size_t count = _transports.back()->readSome({bytes.reserve(size), size});
    if (count == 0) return std::nullopt;
    bytes.commit(count);
    return bytes.data();
}

bool KTSocket::waitForInput(std::chrono::milliseconds atMost) {
    return !pendingBytes().empty() || _transports.back()->pending() > 0 || _lowest->waitForInput(atMost);
}

void KTSocket::wake() noexcept {
    _lowest->wake();
}

void KTSocket::writeData(std::string_view bytes) {
    writeData(std::span(&bytes, 1));
}

void KTSocket::writeData(std::span<const std::string_view> pieces) {
    for (std::size_t sent = 0;;) {  // of the first piece
        while (!pieces.empty() && pieces.front().size() <= sent) {
            sent -= pieces.front().size();
            pieces = pieces.subspan(1);
        }
        if (pieces.empty()) return;
        const auto rest = pieces.front().substr(sent);
        sent += _transports.back()->writeSome(sent == 0 ? pieces : std::span(&rest, 1));
    }
}

void KTSocket::shutdown() noexcept {
    _lowest->interrupt();
}

void KTSocket::addLayer(const LayerMaker& make) {
    if (!pendingBytes().empty())
        throw InvalidArgumentException("The peer has sent bytes before the layer was there.");
    _transports.push_back(make(*_transports.back()));
}

void KTSocket::setTimeout(std::chrono::milliseconds timeout) {
    _timeout = timeout;
    _lowest->setTimeout(timeout);
}

}  // namespace lorvale
