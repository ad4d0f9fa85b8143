#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "base/files/Descriptor.h"

namespace lorvale::testing {

/// Stands between a client and a server of this machine and hangs up on both in the middle of what they say, at
/// any byte.  One connection at a time.
class CuttingProxy {
public:
    explicit CuttingProxy(std::uint16_t server);
    ~CuttingProxy();
    CuttingProxy(const CuttingProxy&) = delete;
    CuttingProxy& operator=(const CuttingProxy&) = delete;

    std::uint16_t port() const { return _port; }
    /// Of each connection from now on, both directions together; the rest is lost.
    void cutAfter(std::size_t bytes) { _mostBytes = bytes; }
    /// Of the last connection, until it ended.
    std::size_t passedOn() const { return _passedOn; }

private:
    void serve();
    void passOn(int client, int server);

    const std::uint16_t _server;
    std::uint16_t _port = 0;
    Descriptor _listener, _stop;
    std::atomic<std::size_t> _mostBytes = SIZE_MAX, _passedOn = 0;
    std::thread _thread;  // last: uses all of them
};

}  // namespace lorvale::testing
