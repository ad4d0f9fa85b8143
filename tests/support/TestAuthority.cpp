#include "tests/support/TestAuthority.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <stdexcept>

#include "lorvale/platform/socket.h"

namespace lorvale::testing {

namespace {

void extend(X509* certificate, X509* issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    if (extension == nullptr) throw std::runtime_error("no such extension: " + value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

/// With a new key; signed by it where there is no issuer.
TestIdentity certify(std::string_view name, long seconds, const TestIdentity* issuer) {
    static std::atomic<long> serial = 1;
    const TestIdentity made = {{EVP_EC_gen("P-256"), EVP_PKEY_free}, {X509_new(), X509_free}};
    X509* const certificate = made.certificate.get();
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial++);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -7200);
    X509_gmtime_adj(X509_getm_notAfter(certificate), seconds);
    X509_set_pubkey(certificate, made.key.get());
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name.data()),
                               static_cast<int>(name.size()), -1, 0);
    X509_set_issuer_name(certificate, X509_get_subject_name(issuer ? issuer->certificate.get() : certificate));
    return made;
}

void sign(const TestIdentity& identity, const TestIdentity& issuer) {
    X509_sign(identity.certificate.get(), issuer.key.get(), EVP_sha256());
}

}  // namespace

TestAuthority::TestAuthority() : _self(certify("Authority of a test", 3600, nullptr)) {
    extend(_self.certificate.get(), _self.certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    sign(_self, _self);
}

TestIdentity TestAuthority::issue(const std::string& names, long seconds) const {
    const auto made = certify("a server", seconds, &_self);
    extend(made.certificate.get(), _self.certificate.get(), NID_subject_alt_name, names);
    sign(made, _self);
    return made;
}

void TestAuthority::writeTo(const std::filesystem::path& file) const {
    BIO* const out = BIO_new_file(file.c_str(), "w");
    PEM_write_bio_X509(out, _self.certificate.get());
    BIO_free(out);
}

TlsServerSide::TlsServerSide(int descriptor, const TestIdentity& identity) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()),
                                                                    SSL_CTX_free);
    SSL_CTX_use_certificate(context.get(), identity.certificate.get());
    SSL_CTX_use_PrivateKey(context.get(), identity.key.get());
    _session.reset(SSL_new(context.get()), SSL_free);
    // A client that hangs up would be written to, with a signal: the descriptor's own ways would not prevent
    // it.
    SSL_set_fd(_session.get(), descriptor);
    if (SSL_accept(_session.get()) != 1) {
        ERR_clear_error();
        throw std::runtime_error("the handshake failed");
    }
}

TlsServerSide::~TlsServerSide() {
    SSL_shutdown(_session.get());
    ERR_clear_error();
}

ssize_t TlsServerSide::read(std::span<char> into) {
    return SSL_read(_session.get(), into.data(), static_cast<int>(into.size()));
}

ssize_t TlsServerSide::write(std::string_view bytes) {
    return SSL_write(_session.get(), bytes.data(), static_cast<int>(bytes.size()));
}

bool TlsServerSide::hasMore() const {
    return SSL_pending(_session.get()) > 0;
}

}  // namespace lorvale::testing
