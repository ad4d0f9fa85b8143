#include "base/platform/SocketConnection.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

#include "lorvale/values/format.h"

namespace lorvale {

namespace {

constexpr std::size_t kPiecesAtOnce = 256;  // of a gathered write; the system takes 1024

[[noreturn]] void throwSystemError(std::string_view operation, int error) {
    const char* text = ::strerrordesc_np(error);
    throw GenericException(formatText("%@: %s", operation, text == nullptr ? "unknown error" : text));
}

struct AddressList {
    explicit AddressList(const std::string& host) {
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_protocol = IPPROTO_TCP;
        if (::getaddrinfo(host.c_str(), nullptr, &hints, &first) != 0) first = nullptr;
    }
    ~AddressList() {
        if (first != nullptr) ::freeaddrinfo(first);
    }
    AddressList(const AddressList&) = delete;
    AddressList& operator=(const AddressList&) = delete;

    addrinfo* first = nullptr;
};

Descriptor newSocket(int family) {
    return Descriptor(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
}

void setPort(addrinfo& address, std::uint16_t port) {
    if (address.ai_family == AF_INET) reinterpret_cast<sockaddr_in*>(address.ai_addr)->sin_port = htons(port);
    if (address.ai_family == AF_INET6)
        reinterpret_cast<sockaddr_in6*>(address.ai_addr)->sin6_port = htons(port);
}

}  // namespace

std::unique_ptr<SocketConnection> SocketConnection::over(Descriptor socket) {
    Descriptor stop(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!socket || !stop || !wake) return nullptr;
    return std::unique_ptr<SocketConnection>(
        new SocketConnection(std::move(socket), std::move(stop), std::move(wake)));
}

std::unique_ptr<SocketConnection> SocketConnection::make() {
    return over(newSocket(AF_INET));
}

void SocketConnection::connectTo(const std::string& host, std::uint16_t port) {
    const AddressList addresses(host);
    if (addresses.first == nullptr)
        throw GenericException(formatText("Can't determine IP address of host: %@.", host));
    if (const int error = connectToOneOf(*addresses.first, port); error != 0)
        throw GenericException(
            formatText("Can't connect to host named %@ on port %d, errno: 0x%x", host, port, error));
}

int SocketConnection::connectToOneOf(addrinfo& addresses, std::uint16_t port) {
    int firstError = 0;
    for (auto* address = &addresses; address != nullptr; address = address->ai_next) {
        setPort(*address, port);
        int error = 0;
        try {
            error = tryAddress(*address);
        } catch (const SocketTimeoutException&) {
            // One that does not answer, as a wrong route of a host with two does, need not keep us from the
            // other.
            if (address->ai_next == nullptr) throw;
            error = ETIMEDOUT;
        }
        if (error == 0) return 0;
        if (firstError == 0) firstError = error;
    }
    _socket = newSocket(AF_INET);  // what has failed to connect reads as ended
    return firstError;
}

int SocketConnection::tryAddress(const addrinfo& address) {
    throwIfInterrupted();
    _socket = newSocket(address.ai_family);
    if (!_socket) return errno;
    // Commands and answers alternate: nothing is gained by holding a short one back.
    const int on = 1;
    ::setsockopt(_socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(_socket.get(), address.ai_addr, address.ai_addrlen) == 0) return 0;
    if (errno != EINPROGRESS && errno != EINTR) return errno;
    waitFor(POLLOUT);
    int error = 0;
    socklen_t size = sizeof error;
    return ::getsockopt(_socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

std::size_t SocketConnection::readSome(std::span<std::uint8_t> into) {
    for (;;) {
        throwIfInterrupted();
        const auto count = ::recv(_socket.get(), into.data(), into.size(), MSG_DONTWAIT);
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno == EAGAIN) {
            waitFor(POLLIN);
        } else if (errno != EINTR) {
            throwSystemError("recv", errno);
        }
    }
}

std::size_t SocketConnection::writeSome(std::span<const std::string_view> pieces) {
    std::array<iovec, kPiecesAtOnce> vectors;
    const auto used = pieces.first(std::min(pieces.size(), kPiecesAtOnce));
    std::ranges::transform(used, vectors.begin(), [](std::string_view piece) {
        return iovec{const_cast<char*>(piece.data()), piece.size()};
    });
    msghdr message{};
    message.msg_iov = vectors.data();
    message.msg_iovlen = used.size();
    for (;;) {
        throwIfInterrupted();
        const auto count = ::sendmsg(_socket.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count > 0) return static_cast<std::size_t>(count);
        if (count < 0 && errno == EAGAIN) {
            waitFor(POLLOUT);
        } else if (count == 0 || errno != EINTR) {
            throwSystemError("send", count == 0 ? 0 : errno);
        }
    }
}

void SocketConnection::waitFor(short events) {
    const bool hasEnd = _timeout > std::chrono::milliseconds::zero();
    if (!pollUntil(events, -1, hasEnd ? std::optional(Clock::now() + _timeout) : std::nullopt))
        throw SocketTimeoutException(formatText("The peer has been silent for %g seconds.",
                                                std::chrono::duration<double>(_timeout).count()));
    throwIfInterrupted();
}

bool SocketConnection::pollUntil(short events, int alsoWatched, std::optional<Clock::time_point> end) {
    std::array<pollfd, 3> watched = {
        {{_socket.get(), events, 0}, {_stop.get(), POLLIN, 0}, {alsoWatched, POLLIN, 0}}};
    for (;;) {
        timespec left{};
        if (end) {
            const auto time = std::chrono::nanoseconds(std::max(*end - Clock::now(), Clock::duration::zero()));
            left = {time.count() / 1'000'000'000, time.count() % 1'000'000'000};
        }
        const int ready = ::ppoll(watched.data(), watched.size(), end ? &left : nullptr, nullptr);
        if (ready > 0) return true;
        if (ready == 0) return false;
        if (errno != EINTR) throwSystemError("poll", errno);
    }
}

bool SocketConnection::waitForInput(std::chrono::milliseconds atMost) {
    (void)pollUntil(POLLIN, _wake.get(), Clock::now() + atMost);
    std::uint64_t calls = 0;
    if (::read(_wake.get(), &calls, sizeof calls) > 0) return false;
    pollfd socket{_socket.get(), POLLIN, 0};
    return _isStopped || ::poll(&socket, 1, 0) > 0;
}

void SocketConnection::wake() noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written =
        ::write(_wake.get(), &one, sizeof one);  // fails only when set already
}

void SocketConnection::interrupt() noexcept {
    _isStopped = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written =
        ::write(_stop.get(), &one, sizeof one);  // fails only when set already
}

void SocketConnection::throwIfInterrupted() const {
    if (_isStopped) throw SocketClosedException("The connection was shut down.");
}

}  // namespace lorvale
