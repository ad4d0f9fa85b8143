#include "tests/support/CuttingProxy.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "tests/support/ScriptedPeer.h"

namespace lorvale::testing {

namespace {

bool sendAll(int socket, std::span<const char> bytes) {
    while (!bytes.empty()) {
        const auto count = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

CuttingProxy::CuttingProxy(std::uint16_t server)
    : _server(server),
      _listener(listenOnFreePort(_port)),
      _stop(::eventfd(0, EFD_CLOEXEC)),
      _thread([this] { serve(); }) {}

CuttingProxy::~CuttingProxy() {
    ::eventfd_write(_stop.get(), 1);
    _thread.join();
}

void CuttingProxy::serve() {
    while (true) {
        std::array<pollfd, 2> watched = {{{_listener.get(), POLLIN, 0}, {_stop.get(), POLLIN, 0}}};
        if (::poll(watched.data(), watched.size(), -1) < 0 || watched[1].revents != 0) return;
        const Descriptor client(::accept4(_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const Descriptor server(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const auto address = loopback(_server);
        if (::connect(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
            passOn(client.get(), server.get());
    }
}

void CuttingProxy::passOn(int client, int server) {
    _passedOn = 0;
    auto left = _mostBytes.load();
    std::array<char, 4096> bytes;
    while (left > 0) {
        std::array<pollfd, 3> watched = {{{client, POLLIN, 0}, {server, POLLIN, 0}, {_stop.get(), POLLIN, 0}}};
        if (::poll(watched.data(), watched.size(), -1) < 0 || watched[2].revents != 0) return;
        for (const auto& [from, to] : {std::pair(0, 1), std::pair(1, 0)}) {
            if (watched[static_cast<std::size_t>(from)].revents == 0) continue;
            const auto most = std::min(left, bytes.size());
            const auto count = ::recv(watched[static_cast<std::size_t>(from)].fd, bytes.data(), most, 0);
            const auto size = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
            if (size == 0 || !sendAll(watched[static_cast<std::size_t>(to)].fd, {bytes.data(), size})) return;
            _passedOn += size;
            if ((left -= size) == 0) return;
        }
    }
}

}  // namespace lorvale::testing
