#pragma once
#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>

struct evp_pkey_st;
struct ssl_st;
struct x509_st;

namespace lorvale::testing {

/// A certificate and its key.
struct TestIdentity {
    std::shared_ptr<evp_pkey_st> key;
    std::shared_ptr<x509_st> certificate;
};

/// Signs certificates for one test.
class TestAuthority {
public:
    TestAuthority();
    /// For names as OpenSSL writes them, "DNS:mail.example,IP:127.0.0.1", good until so many seconds from now.
    TestIdentity issue(const std::string& names, long seconds = 3600) const;
    /// What a client is told to trust.
    void writeTo(const std::filesystem::path& file) const;

private:
    TestIdentity _self;
};

/// The server's side of TLS over a connected descriptor, which it borrows.
class TlsServerSide {
public:
    /// Waits for the handshake; throws std::runtime_error where that fails.
    TlsServerSide(int descriptor, const TestIdentity& identity);
    ~TlsServerSide();  ///< says good-bye
    ssize_t read(std::span<char> into);
    ssize_t write(std::string_view bytes);
    bool hasMore() const;

private:
    std::shared_ptr<ssl_st> _session;
};

}  // namespace lorvale::testing
