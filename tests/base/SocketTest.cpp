#include "lorvale/platform/socket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>
#include <thread>

#include "base/platform/SocketConnection.h"
#include "tests/support/FailureText.h"
#include "tests/support/MemoryTransport.h"
#include "tests/support/ScriptedPeer.h"

namespace lorvale::testing {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using ::testing::HasSubstr;

TEST(Socket, ReadsLinesAndBytesHoweverTheyArrive) {
    const std::string all = "first\r\n\r\nwith\nothers\r and \0 end\r\r\n{10}\r\n\r\n\0\xff\r\nabcd\r\ntail"s;
    for (std::size_t size = 1; size <= all.size(); ++size) {
        SCOPED_TRACE(size);
        MemoryTransport::Log log;
        KTSocket socket(std::make_unique<MemoryTransport>(inPieces(all, size), log));
        std::string lines;
        for (int i = 0; i < 4; ++i) EXPECT_TRUE(socket.readLine(lines));
        EXPECT_EQ(lines, all.substr(0, all.find("\r\n\r\n\0"s) + 2));
        ByteBuffer bytes;
        EXPECT_TRUE(socket.readBytes(bytes, 10));
        EXPECT_EQ(bytes.view(), "\r\n\0\xff\r\nabcd"s);
        EXPECT_TRUE(socket.readLine(bytes));
        EXPECT_EQ(bytes.size(), 12U);
        std::string none = "kept";
        EXPECT_EQ(reasonOf([&] { socket.readLine(none); }),
                  "SocketClosedException: The peer has closed the connection in the middle of a line.");
        EXPECT_FALSE(socket.readBytes(none, 5));
        EXPECT_EQ(none, "kept");
    }
}

TEST(Socket, AsksForNoMoreThanItNeeds) {
    MemoryTransport::Log log;
    {
        KTSocket socket(std::make_unique<MemoryTransport>(inPieces("one\r\ntwo\r\nrest", 100), log));
        std::string line;
        EXPECT_TRUE(socket.readLine(line) && socket.readLine(line));
        EXPECT_EQ(socket.readAvailableData(3), Data::ofStatic("res"));
        EXPECT_TRUE(socket.readBytes(line, 0));
        EXPECT_EQ(log.reads, 1);
        EXPECT_EQ(socket.readAvailableData(), Data::ofStatic("t"));
        EXPECT_EQ(socket.readAvailableData(), std::nullopt);
        const std::string_view pieces[] = {"", "gath", "", "ered in pieces", "", ""};
        socket.writeData(pieces);
        socket.writeData("");
        EXPECT_EQ(log.written, "gathered in pieces");
        EXPECT_EQ(log.closes, 0);
    }
    EXPECT_EQ(log.closes, 1);
}

TEST(Socket, BoundsALineByItsLimit) {
    const std::string line = "12345678\r\n";
    for (const std::size_t size : {1U, 9U, 100U}) {
        for (const std::size_t limit : {9U, 10U}) {
            MemoryTransport::Log log;
            KTSocket socket(std::make_unique<MemoryTransport>(inPieces(line + "more", size), log));
            socket.setLineLimit(limit);
            std::string read;
            const auto reason = reasonOf([&] { socket.readLine(read); });
            EXPECT_EQ(read, limit == 10 ? line : "") << size;
            EXPECT_EQ(reason, limit == 10
                                  ? ""
                                  : "SocketLimitException: The peer has sent a line of more than 9 bytes.");
        }
    }
}

TEST(Socket, TalksToAPeer) {
    ScriptedPeer peer({"S: 220 ready", "C: HELO *", "s: 250 a\r\nunasked", "C: exactly"},
                      ScriptedPeer::Pace::byteByByte);
    const auto socket = peer.connect();
    std::string said;
    EXPECT_TRUE(socket->readLine(said));
    socket->writeData("HELO there\r\n");
    EXPECT_TRUE(socket->readLine(said) && socket->readBytes(said, 7));
    EXPECT_EQ(said, "220 ready\r\n250 a\r\nunasked");
    socket->writeData("other\r\n");
    EXPECT_EQ(peer.firstSurprise(), "\"other\" instead of \"exactly\"");
}

TEST(Socket, SendsMoreThanTheSystemTakesAtOnce) {
    ScriptedPeer peer({".", "S: thanks"});
    const auto socket = peer.connect();
    const std::string line = "0123456789\r\n";
    std::vector<std::string_view> pieces(100'000, line);
    const std::string large(8'000'000, 'x');
    pieces.emplace_back(large);
    pieces.emplace_back("\r\n.\r\n");
    socket->writeData(pieces);
    std::string thanks;
    EXPECT_TRUE(socket->readLine(thanks));
    ASSERT_EQ(peer.texts().size(), 1U);
    EXPECT_EQ(peer.texts()[0].size(), 1'200'000 + large.size() + 5);
}

TEST(Socket, NamesWhatItCannotConnectTo) {
    const auto socket = KTSocket::socket();
    EXPECT_EQ(reasonOf([&] { socket->connectToHost("127.0.0.1", "no-such-service"); }),
              "GenericException: Can't determine port to connect to host with.  Make sure no-such-service is a "
              "valid TCP/IP service name.");
    EXPECT_EQ(reasonOf([&] { socket->connectToHost("no host", 1); }),
              "GenericException: Can't determine IP address of host: no host.");
    EXPECT_EQ(reasonOf([&] { socket->connectToHost("127.0.0.1", 1); }),
              "GenericException: Can't connect to host named 127.0.0.1 on port 1, errno: 0x6f");
    EXPECT_THAT(reasonOf([&] { (void)socket->readAvailableData(); }), HasSubstr("GenericException: recv: "));
    EXPECT_THAT(reasonOf([&] { socket->writeData("x"); }), HasSubstr("GenericException: send: "));
    ScriptedPeer peer({"S: here"});
    socket->connectToHost(ScriptedPeer::host(), peer.port());
    std::string line;
    EXPECT_TRUE(socket->readLine(line));
}

TEST(Socket, TriesTheNextAddressWhereOneIsSilent) {
    ScriptedPeer peer({});
    // A server whose queue is full takes nobody and refuses nobody.
    const Descriptor silent(::socket(AF_INET, SOCK_STREAM, 0));
    auto address = loopback(peer.port()), none = address, there = address;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    none.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 2);
    ASSERT_EQ(::bind(silent.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(silent.get(), 0), 0);
    std::vector<Descriptor> waiting;
    for (int i = 0; i < 3; ++i) {
        waiting.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        ::connect(waiting.back().get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
    const auto outcome = [&](std::vector<sockaddr_in*> addresses) -> std::string {
        std::vector<addrinfo> list(addresses.size());
        for (std::size_t i = 0; i < list.size(); ++i) {
            list[i].ai_family = AF_INET;
            list[i].ai_addr = reinterpret_cast<sockaddr*>(addresses[i]);
            list[i].ai_addrlen = sizeof(sockaddr_in);
            list[i].ai_next = i + 1 < list.size() ? &list[i + 1] : nullptr;
        }
        const auto connection = SocketConnection::make();
        connection->setTimeout(50ms);
        int error = 0;
        const auto thrown = reasonOf([&] { error = connection->connectToOneOf(list.front(), peer.port()); });
        return thrown.empty() ? std::to_string(error) : thrown;
    };
    EXPECT_EQ(outcome({&address, &none, &there}), "0");
    EXPECT_EQ(outcome({&address, &none}), std::to_string(ETIMEDOUT));
    EXPECT_EQ(outcome({&none, &address}), "SocketTimeoutException: The peer has been silent for 0.05 seconds.");
}

TEST(Socket, NeverWaitsLongerThanItMay) {
    ScriptedPeer peer({"s: half a li", "W"});
    const auto socket = peer.connect();
    socket->setTimeout(50ms);
    std::string line;
    const std::string silent = "SocketTimeoutException: The peer has been silent for 0.05 seconds.";
    EXPECT_EQ(reasonOf([&] { socket->readLine(line); }), silent);
    EXPECT_EQ(reasonOf([&] { socket->readBytes(line, 100); }), silent);
    EXPECT_EQ(line, "");
    const std::string large(8'000'000, 'x');
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    const auto deaf = KTSocket::initWithSocket(pair[0]);
    deaf->setTimeout(50ms);
    EXPECT_EQ(reasonOf([&] { deaf->writeData(large); }), silent);
    ::close(pair[1]);
    EXPECT_THAT(reasonOf([&] { deaf->writeData(large); }), HasSubstr("send: Broken pipe"));
}

TEST(SocketThreads, OneThreadEndsWhatAnotherWaitsFor) {
    ScriptedPeer peer({"S: hello", "W"});
    for (const bool before : {false, true}) {
        const auto socket = before ? KTSocket::socket() : peer.connect();
        std::thread other([&] {
            if (!before) std::this_thread::sleep_for(20ms);
            socket->shutdown();
        });
        if (before) other.join();
        std::string line;
        const std::string ended = "SocketClosedException: The connection was shut down.";
        EXPECT_EQ(reasonOf([&] {
                      if (before) socket->connectToHost(ScriptedPeer::host(), peer.port());
                      while (socket->readLine(line)) {
                      }
                  }),
                  ended);
        if (!before) other.join();
        EXPECT_EQ(reasonOf([&] { socket->writeData("x"); }), ended);
    }
}

TEST(Socket, PutsALayerOnlyBetweenLines) {
    MemoryTransport::Log below, above;
    KTSocket socket(std::make_unique<MemoryTransport>(inPieces("ready\r\ninjected\r\n", 7), below));
    std::string line;
    EXPECT_TRUE(socket.readLine(line));
    const auto layer = [&](SocketTransport&) {
        return std::make_unique<MemoryTransport>(inPieces("secret\r\n", 3), above);
    };
    socket.addLayer(layer);
    EXPECT_TRUE(socket.readLine(line));
    EXPECT_EQ(line, "ready\r\nsecret\r\n");
    KTSocket eager(std::make_unique<MemoryTransport>(inPieces("ready\r\ninjected\r\n", 9), below));
    EXPECT_TRUE(eager.readLine(line));
    EXPECT_THROW(eager.addLayer(layer), InvalidArgumentException);
}

}  // namespace
}  // namespace lorvale::testing
