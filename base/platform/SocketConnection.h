#pragma once
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/files/Descriptor.h"
#include "lorvale/platform/socket.h"

struct addrinfo;

namespace lorvale {

/// A stream socket of the system.  Its waits end by the peer, the time-out, or interrupt().
class SocketConnection final : public SocketTransport {
public:
    using Clock = std::chrono::steady_clock;

    /// Takes over a connected socket; null when the system has no descriptors left.
    static std::unique_ptr<SocketConnection> over(Descriptor socket);
    /// Not connected yet.
    static std::unique_ptr<SocketConnection> make();

    void connectTo(const std::string& host, std::uint16_t port);
    /// To the first address of the list that answers; sets their ports.  0, or the number of the first error.
    /// Throws SocketTimeoutException when the last one is silent.
    int connectToOneOf(addrinfo& addresses, std::uint16_t port);

    std::size_t readSome(std::span<std::uint8_t> into) override;
    std::size_t writeSome(std::span<const std::string_view> pieces) override;
    std::size_t pending() const override { return 0; }
    void close() noexcept override {}  // the descriptor goes with the object
    void setTimeout(std::chrono::milliseconds timeout) override { _timeout = timeout; }
    void interrupt() noexcept override;
    bool waitForInput(std::chrono::milliseconds atMost) override;
    void wake() noexcept override;

private:
    SocketConnection(Descriptor socket, Descriptor stop, Descriptor wake)
        : _socket(std::move(socket)), _stop(std::move(stop)), _wake(std::move(wake)) {}
    /// 0, or the number of the error.
    int tryAddress(const addrinfo& address);
    void waitFor(short events);
    /// Whether the event has come, or the stop, before the time is up; none: there is no such time.
    bool pollUntil(short events, int alsoWatched, std::optional<Clock::time_point> end);
    void throwIfInterrupted() const;

    Descriptor _socket;
    const Descriptor _stop;               // an event that wakes what waits; set once
    const Descriptor _wake;               // one that ends a wait for input; unset by the wait that it ends
    std::atomic<bool> _isStopped{false};  // the same, for what need not wait
    std::chrono::milliseconds _timeout{0};
};

}  // namespace lorvale
