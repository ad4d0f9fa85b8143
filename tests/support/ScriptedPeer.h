#pragma once
#include <netinet/in.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/files/Descriptor.h"
#include "lorvale/platform/socket.h"
#include "tests/support/TestAuthority.h"

namespace lorvale::testing {

/// A port of this machine.
sockaddr_in loopback(std::uint16_t port);
/// On a port of this machine that nobody else uses.  Throws std::runtime_error without one.
Descriptor listenOnFreePort(std::uint16_t& port);

/// A server on a free port of this machine that plays a conversation.  Each line of the script is a step, or a
/// few of them with " | " between, as a command and its answer:
///
///     "S: +OK ready"     sends that line and its CRLF
///     "s: bytes"         sends just those bytes, CRLF and NUL where they stand
///     "C: USER anna"     expects that line; a "*" at its end stands for anything
///     "."                expects lines up to one that is a single dot, and keeps them as texts()
///     "T"                does the server's part of a TLS handshake
///     "W"                is silent until the client hangs up
///     "A"                hangs up and takes the next connection
///     "X"                hangs up
///     "C: NOOP | S: +OK" expects that line, then sends the answer
///
/// Behind the last step it reads on until the client hangs up, and whatever comes is a surprise.  A step waits
/// for half a minute at most.  After a surprise it hangs up and takes nobody any more.
class ScriptedPeer {
public:
    enum class Pace { whole, byteByByte };  ///< of what it sends
    explicit ScriptedPeer(const std::vector<std::string>& script, Pace pace = Pace::whole,
                          TestIdentity identity = {});
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    std::uint16_t port() const { return _port; }
    static std::string host() { return "127.0.0.1"; }
    /// A new connection to it.
    std::unique_ptr<KTSocket> connect() const;

    /// What was not in the script, told as a sentence; empty when all went by it.  Waits until all steps are
    /// done, or the client has hung up.
    std::string firstSurprise();
    /// What the client has sent in "." steps, with the line of the dot.  Waits likewise.
    std::vector<std::string> texts();

private:
    void play();
    void step(const std::string& line);
    void accept();
    void hangUp();
    void send(std::string_view bytes);
    std::string nextLine(std::string_view expected);
    std::string textUpToDot();
    void readOn();
    bool receive();
    bool waitFor(int descriptor, short events);
    void waitUntilDone();

    const std::vector<std::string> _script;
    const Pace _pace;
    const TestIdentity _identity;
    std::uint16_t _port = 0;
    Descriptor _listener, _client, _stop;
    std::unique_ptr<TlsServerSide> _secured;
    std::string _received;  // and not yet looked at
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _isDone = false;             // guarded by _mutex
    std::string _surprise;            // likewise
    std::vector<std::string> _texts;  // likewise
    std::thread _thread;              // last: uses all of them
};

}  // namespace lorvale::testing
