#pragma once
#include <openssl/ssl.h>

#include <array>
#include <exception>
#include <memory>
#include <string>

#include "lorvale/platform/socket.h"
#include "lorvale/platform/tls.h"

namespace lorvale {

/// The client's side of TLS over another transport.
class TlsTransport final : public SocketTransport {
public:
    /// Agrees on keys with the server and checks its certificate.  Throws TLSException.
    TlsTransport(SocketTransport& below, const std::string& host, const TLSSettings& settings);

    std::size_t readSome(std::span<std::uint8_t> into) override;
    std::size_t writeSome(std::span<const std::string_view> pieces) override;
    std::size_t pending() const override;
    void close() noexcept override;

private:
    struct Free {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
        void operator()(SSL* session) const { SSL_free(session); }
    };
    static constexpr std::size_t kRecord = 16 * 1024;  // the most that TLS takes at once

    static const BIO_METHOD* wayBelow();
    static int readBelow(BIO* way, char* into, std::size_t size, std::size_t* count);
    static int writeBelow(BIO* way, const char* bytes, std::size_t size, std::size_t* count);
    template <class Transfer>
    int transferBelow(const Transfer& transfer);

    void trust(const TLSSettings& settings);
    void expectHost(const std::string& host);
    std::string failure(int result) const;
    [[noreturn]] void fail(int result);
    std::string_view gathered(std::span<const std::string_view> pieces);

    SocketTransport& _below;  // borrowed for life
    const std::string _host;
    std::unique_ptr<SSL_CTX, Free> _context;
    std::unique_ptr<SSL, Free> _session;
    std::exception_ptr _failureBelow;  // what must not pass through the library's frames
    bool _isBroken = true;             // nothing more can be said to the server
    std::array<char, kRecord> _record;
};

}  // namespace lorvale
