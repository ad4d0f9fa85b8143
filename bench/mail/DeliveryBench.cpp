// A thousand messages to one SMTP server, which takes whatever comes and keeps nothing: those of the mailbox
// that LORVALE_MAILBOX names, else made ones.  "Raw" writes bytes that were made ready before, with the same
// round trips, and so tells what the server can take; "smtplib" is Python's client.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "base/files/FileSystem.h"
#include "lorvale/delivery.h"
#include "lorvale/values/data.h"
#include "mail/delivery/TransparentText.h"
#include "mail/stores/MboxScan.h"

namespace {

using namespace lorvale;

constexpr std::size_t kMessages = 1000;

const std::vector<std::string>& messages() {
    static const auto all = [] {
        std::vector<std::string> found;
        const char* const named = std::getenv("LORVALE_MAILBOX");
        const auto mailbox = named != nullptr ? FileSystem::current().readFile(named) : std::nullopt;
        for (const auto& entry : mailbox ? mboxEntries(mailbox->view()) : decltype(mboxEntries("")){})
            if (found.size() < kMessages)
                found.emplace_back(mailbox->view().substr(entry.range.location, entry.range.length));
        for (std::size_t i = found.size(); i < kMessages; ++i) {
            found.emplace_back("From: a@x.example\nSubject: a message\n\n");
            for (std::size_t line = 0; line < 20 + i % 80; ++line) found.back().append(60, 'x').append("\n");
        }
        return found;
    }();
    return all;
}

std::size_t totalSize() {
    std::size_t size = 0;
    for (const auto& message : messages()) size += message.size();
    return size;
}

/// Takes mail on one thread, one connection after the other.
class Sink {
public:
    Sink() : _listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const plain = reinterpret_cast<sockaddr*>(&address);
        if (::bind(_listener, plain, size) != 0 || ::listen(_listener, 16) != 0) std::abort();
        ::getsockname(_listener, plain, &size);
        port = ntohs(address.sin_port);
        _thread = std::thread([this] { serve(); });
    }
    ~Sink() {
        ::shutdown(_listener, SHUT_RDWR);
        _thread.join();
        ::close(_listener);
    }
    std::uint16_t port = 0;
    std::size_t mails = 0;  // read behind a reply that came after it was set

private:
    void serve() {
        for (int client; (client = ::accept(_listener, nullptr, nullptr)) >= 0; ::close(client)) {
            const int on = 1;
            ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            converse(client);
        }
    }
    void converse(int client) {
        std::string in, out = "220 sink\r\n";
        bool isText = false;
        std::vector<char> block(1 << 20);
        for (;;) {
            if (!out.empty() && ::send(client, out.data(), out.size(), MSG_NOSIGNAL) < 0) return;
            out.clear();
            const auto count = ::recv(client, block.data(), block.size(), 0);
            if (count <= 0) return;
            in.append(block.data(), static_cast<std::size_t>(count));
            for (std::size_t end; (end = in.find(isText ? "\r\n.\r\n" : "\r\n")) != std::string::npos;) {
                out += isText ? (++mails, "250 kept\r\n") : reply(in);
                const bool wasText = isText;
                isText = !isText && (in.starts_with("DATA") || in.starts_with("data"));
                in.erase(0, end + (wasText ? 5 : 2));
            }
            // Of a text only what may be part of its end is kept.
            if (isText && in.size() > 4) in.erase(0, in.size() - 4);
        }
    }
    static const char* reply(const std::string& command) {
        if (command.starts_with("ehlo") || command.starts_with("EHLO"))
            return "250-sink\r\n250-PIPELINING\r\n250 8BITMIME\r\n";
        if (command.starts_with("DATA") || command.starts_with("data")) return "354 go\r\n";
        return command.starts_with("QUIT") || command.starts_with("quit") ? "221 bye\r\n" : "250 ok\r\n";
    }

    const int _listener;
    std::thread _thread;
};

void count(benchmark::State& state, const Sink& sink) {
    if (sink.mails != kMessages * static_cast<std::size_t>(state.iterations()))
        state.SkipWithError("mails are missing");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(totalSize()));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kMessages));
}

void BM_SMTPConnection(benchmark::State& state) {
    Sink sink;
    for (auto _ : state) {
        SMTPConnection connection(KTSocket::socket(), {}, MailDialect::standard);
        connection.connectToHost("127.0.0.1:" + std::to_string(sink.port));
        for (const auto& message : messages()) {
            connection.startMail({"a@x.example", {"b@x.example"}, message.size(), true});
            connection.sendData(message);
            connection.endData();
        }
        connection.quit();
    }
    count(state, sink);
}
BENCHMARK(BM_SMTPConnection)->UseRealTime()->Unit(benchmark::kMillisecond);

void writeAndRead(int socket, std::string_view bytes, std::string_view lastLine) {
    while (!bytes.empty()) {
        const auto sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) std::abort();
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    std::string in;
    std::array<char, 4096> block;
    while (!in.ends_with("\r\n") || in.find(lastLine) == std::string::npos) {
        const auto count = ::recv(socket, block.data(), block.size(), 0);
        if (count <= 0) std::abort();
        in.append(block.data(), static_cast<std::size_t>(count));
    }
}

void BM_Raw(benchmark::State& state) {
    std::vector<std::string> texts;
    for (const auto& message : messages()) {
        TransparentText text(message, MailDialect::standard);
        auto& made = texts.emplace_back();
        while (text.appendTo(made, message.size())) continue;
        made += ".\r\n";
    }
    Sink sink;
    for (auto _ : state) {
        const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
        const int on = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(sink.port);
        if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) std::abort();
        writeAndRead(socket, "", "220");
        writeAndRead(socket, "EHLO x\r\n", "8BITMIME");
        for (const auto& text : texts) {
            writeAndRead(socket, "MAIL FROM:<a@x.example>\r\nRCPT TO:<b@x.example>\r\nDATA\r\n", "354");
            writeAndRead(socket, text, "250 kept");
        }
        ::close(socket);
    }
    count(state, sink);
}
BENCHMARK(BM_Raw)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_Smtplib(benchmark::State& state) {
    const std::string file = "/tmp/lorvale-bench-" + std::to_string(::getpid());
    {
        std::ofstream out(file, std::ios::binary);
        for (const auto& message : messages()) out << message.size() << '\n' << message;
    }
    Sink sink;
    const std::string command =
        "python3 " LORVALE_SOURCE_DIR "/bench/mail/smtplib_client.py " + std::to_string(sink.port) + " " + file;
    for (auto _ : state) {
        double seconds = 0;
        std::FILE* const output = ::popen(command.c_str(), "r");
        if (output == nullptr || std::fscanf(output, "%lf", &seconds) != 1) state.SkipWithError("no python3");
        if (output != nullptr) ::pclose(output);
        state.SetIterationTime(seconds);
    }
    std::remove(file.c_str());
    count(state, sink);
}
BENCHMARK(BM_Smtplib)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
