#include "tests/support/ScriptedPeer.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <stdexcept>

namespace lorvale::testing {

namespace {

constexpr int kPatience = 30'000;  // milliseconds; machines are busy at times

bool isAsExpected(std::string_view line, std::string_view expected) {
    if (!expected.ends_with('*')) return line == expected;
    return line.starts_with(expected.substr(0, expected.size() - 1));
}

std::vector<std::string> singleSteps(const std::vector<std::string>& script) {
    std::vector<std::string> steps;
    for (std::string_view rest : script) {
        for (auto end = rest.find(" | "); end != rest.npos; end = rest.find(" | ")) {
            steps.emplace_back(rest.substr(0, end));
            rest.remove_prefix(end + 3);
        }
        steps.emplace_back(rest);
    }
    return steps;
}

}  // namespace

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

Descriptor listenOnFreePort(std::uint16_t& port) {
    Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    auto address = loopback(0);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    if (::bind(listener.get(), plain, size) != 0 || ::listen(listener.get(), 16) != 0 ||
        ::getsockname(listener.get(), plain, &size) != 0)
        throw std::runtime_error("no port to listen on");
    port = ntohs(address.sin_port);
    return listener;
}

ScriptedPeer::ScriptedPeer(const std::vector<std::string>& script, Pace pace, TestIdentity identity)
    : _script(singleSteps(script)),
      _pace(pace),
      _identity(std::move(identity)),
      _listener(listenOnFreePort(_port)),
      _stop(::eventfd(0, EFD_CLOEXEC)),
      _thread([this] { play(); }) {}

ScriptedPeer::~ScriptedPeer() {
    ::eventfd_write(_stop.get(), 1);
    _thread.join();
}

std::unique_ptr<KTSocket> ScriptedPeer::connect() const {
    auto socket = KTSocket::socket();
    socket->connectToHost(host(), _port);
    return socket;
}

std::string ScriptedPeer::firstSurprise() {
    waitUntilDone();
    const std::lock_guard lock(_mutex);
    return _surprise;
}

std::vector<std::string> ScriptedPeer::texts() {
    waitUntilDone();
    const std::lock_guard lock(_mutex);
    return _texts;
}

void ScriptedPeer::waitUntilDone() {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [this] { return _isDone; });
}

void ScriptedPeer::play() {
    // Of this thread only: TLS writes without asking for no signal.
    sigset_t pipe;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    std::string surprise;
    const auto finish = [&] {
        const std::lock_guard lock(_mutex);
        _isDone = true;
        if (_surprise.empty()) _surprise = surprise;
        _changed.notify_all();
    };
    try {
        accept();
        for (const auto& line : _script) step(line);
        finish();
        readOn();
    } catch (const std::runtime_error& error) {
        surprise = error.what();
    }
    hangUp();
    _listener.reset();
    finish();
}

void ScriptedPeer::step(const std::string& line) {
    const auto text = line.size() > 3 ? line.substr(3) : "";
    if (line.starts_with("S: ")) return send(text + "\r\n");
    if (line.starts_with("s: ")) return send(text);
    if (line == "T") {
        _secured = std::make_unique<TlsServerSide>(_client.get(), _identity);
        return;
    }
    if (line == "W") return readOn();
    if (line == "X") return hangUp();
    if (line == "A") return accept();
    if (line == ".") {
        auto whole = textUpToDot();
        const std::lock_guard lock(_mutex);
        _texts.push_back(std::move(whole));
        return;
    }
    if (!line.starts_with("C: ")) throw std::runtime_error("no step of a script: " + line);
    const auto said = nextLine(text);
    if (!isAsExpected(said, text)) throw std::runtime_error("\"" + said + "\" instead of \"" + text + "\"");
}

void ScriptedPeer::hangUp() {
    _secured.reset();
    _client.reset();
}

void ScriptedPeer::accept() {
    hangUp();
    _received.clear();
    if (!waitFor(_listener.get(), POLLIN)) throw std::runtime_error("nobody has connected");
    _client.reset(::accept4(_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    const int on = 1;
    ::setsockopt(_client.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void ScriptedPeer::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto piece = bytes.substr(0, _pace == Pace::byteByByte ? 1 : bytes.size());
        if (!waitFor(_client.get(), POLLOUT)) throw std::runtime_error("the client does not read");
        const auto sent = _secured
                              ? _secured->write(piece)
                              : ::send(_client.get(), piece.data(), piece.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) throw std::runtime_error("hung up while it was sent " + std::string(bytes.substr(0, 80)));
        bytes.remove_prefix(static_cast<std::size_t>(sent));
        if (_pace == Pace::byteByByte) std::this_thread::yield();
    }
}

std::string ScriptedPeer::nextLine(std::string_view expected) {
    std::size_t end;
    while ((end = _received.find("\r\n")) == std::string::npos) {
        if (!receive())
            throw std::runtime_error("hung up, or was silent, instead of \"" + std::string(expected) + "\"");
    }
    auto line = _received.substr(0, end);
    _received.erase(0, end + 2);
    return line;
}

std::string ScriptedPeer::textUpToDot() {
    for (std::size_t searched = 0;;) {
        if (_received.starts_with(".\r\n")) return std::exchange(_received, _received.substr(3)).substr(0, 3);
        if (const auto end = _received.find("\r\n.\r\n", searched); end != std::string::npos) {
            auto text = _received.substr(0, end + 5);
            _received.erase(0, end + 5);
            return text;
        }
        searched = _received.size() < 5 ? 0 : _received.size() - 4;
        if (!receive()) throw std::runtime_error("hung up, or was silent, within a text");
    }
}

void ScriptedPeer::readOn() {
    while (_client && receive()) {
    }
    if (!_received.empty()) throw std::runtime_error("\"" + _received.substr(0, 200) + "\", unasked");
}

/// False at the end of the stream, and after too long a silence.
bool ScriptedPeer::receive() {
    std::array<char, 64 * 1024> block;
    if (!(_secured && _secured->hasMore()) && !waitFor(_client.get(), POLLIN)) return false;
    const auto count = _secured ? _secured->read(block) : ::recv(_client.get(), block.data(), block.size(), 0);
    if (count <= 0) return false;
    _received.append(block.data(), static_cast<std::size_t>(count));
    return true;
}

bool ScriptedPeer::waitFor(int descriptor, short events) {
    std::array<pollfd, 2> watched = {{{descriptor, events, 0}, {_stop.get(), POLLIN, 0}}};
    return ::poll(watched.data(), watched.size(), kPatience) > 0 && watched[1].revents == 0;
}

}  // namespace lorvale::testing
