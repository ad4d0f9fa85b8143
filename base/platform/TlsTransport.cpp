#include "base/platform/TlsTransport.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <climits>

#include "lorvale/values/format.h"

namespace lorvale {

namespace {

bool isAddress(const std::string& host) {
    std::array<unsigned char, sizeof(in6_addr)> bytes;
    return ::inet_pton(AF_INET, host.c_str(), bytes.data()) == 1 ||
           ::inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1;
}

}  // namespace

TLSException::~TLSException() = default;

void startTLS(KTSocket& socket, const std::string& host, const TLSSettings& settings) {
    if (!socket.pendingBytes().empty())
        throw TLSException(formatText("%@ has sent text before the connection was secured.", host));
    socket.addLayer(
        [&](SocketTransport& below) { return std::make_unique<TlsTransport>(below, host, settings); });
}

TlsTransport::TlsTransport(SocketTransport& below, const std::string& host, const TLSSettings& settings)
    : _below(below), _host(host), _context(SSL_CTX_new(TLS_client_method())) {
    ERR_clear_error();
    if (!_context) throw TLSException("TLS is not to be had.");
    SSL_CTX_set_min_proto_version(_context.get(), TLS1_2_VERSION);
    SSL_CTX_set_verify(_context.get(), SSL_VERIFY_PEER, nullptr);
    // Many servers just close.  That is no danger here: mail's protocols know where their own texts end.
    SSL_CTX_set_options(_context.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(_context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE);
    trust(settings);
    _session.reset(SSL_new(_context.get()));
    BIO* const way = _session ? BIO_new(wayBelow()) : nullptr;
    if (way == nullptr) throw TLSException("TLS is not to be had.");
    BIO_set_data(way, this);
    BIO_set_init(way, 1);
    SSL_set_bio(_session.get(), way, way);  // takes it over
    expectHost(host);
    if (const int result = SSL_connect(_session.get()); result != 1) fail(result);
    _isBroken = false;
}

void TlsTransport::trust(const TLSSettings& settings) {
    const auto& file = settings.authorities;
    if (file.empty()) {
        SSL_CTX_set_default_verify_paths(_context.get());
    } else if (SSL_CTX_load_verify_file(_context.get(), file.c_str()) != 1) {
        throw TLSException(formatText("The authorities' certificates in %@ could not be read: %@.", file,
                                      ERR_reason_error_string(ERR_get_error())));
    }
}

void TlsTransport::expectHost(const std::string& host) {
    const bool isNumber = isAddress(host);
    X509_VERIFY_PARAM* const wanted = SSL_get0_param(_session.get());
    X509_VERIFY_PARAM_set_hostflags(wanted, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    const bool isSet = isNumber ? X509_VERIFY_PARAM_set1_ip_asc(wanted, host.c_str()) == 1
                                // An empty name, or one with a NUL, would be compared with nothing.
                                : !host.empty() && host.find('\0') == std::string::npos &&
                                      X509_VERIFY_PARAM_set1_host(wanted, host.c_str(), host.size()) == 1 &&
                                      SSL_set_tlsext_host_name(_session.get(), host.c_str()) == 1;
    if (!isSet) throw TLSException(formatText("No certificate can be for a host named \"%@\".", host));
}

std::size_t TlsTransport::readSome(std::span<std::uint8_t> into) {
    ERR_clear_error();
    std::size_t count = 0;
    if (const int result = SSL_read_ex(_session.get(), into.data(), into.size(), &count); result != 1) {
        if (SSL_get_error(_session.get(), result) == SSL_ERROR_ZERO_RETURN) return 0;
        fail(result);
    }
    return count;
}

std::size_t TlsTransport::writeSome(std::span<const std::string_view> pieces) {
    ERR_clear_error();
    const auto bytes = gathered(pieces);
    std::size_t count = 0;
    if (const int result = SSL_write_ex(_session.get(), bytes.data(), bytes.size(), &count); result != 1)
        fail(result);
    return count;
}

/// One record's worth of the pieces; a large one is not copied.
std::string_view TlsTransport::gathered(std::span<const std::string_view> pieces) {
    if (pieces.front().size() >= kRecord) return pieces.front();
    std::size_t size = 0;
    for (const auto piece : pieces) {
        size += piece.copy(_record.data() + size, kRecord - size);
        if (size == kRecord) break;
    }
    return {_record.data(), size};
}

std::size_t TlsTransport::pending() const {
    return static_cast<std::size_t>(std::max(SSL_pending(_session.get()), 0));
}

void TlsTransport::close() noexcept {
    if (_isBroken) return;
    _below.setTimeout(std::chrono::seconds(1));
    ERR_clear_error();
    SSL_shutdown(_session.get());
    ERR_clear_error();
}

std::string TlsTransport::failure(int result) const {
    if (const long verdict = SSL_get_verify_result(_session.get()); verdict != X509_V_OK)
        return formatText("The certificate of %@ cannot be trusted: %@.", _host,
                          X509_verify_cert_error_string(verdict));
    const int kind = SSL_get_error(_session.get(), result);
    const char* const reason = ERR_reason_error_string(ERR_peek_error());
    if (reason != nullptr) return formatText("The secured connection to %@ failed: %@.", _host, reason);
    return formatText("The secured connection to %@ was closed (%d).", _host, kind);
}

void TlsTransport::fail(int result) {
    _isBroken = true;
    if (_failureBelow) std::rethrow_exception(std::exchange(_failureBelow, nullptr));
    const auto reason = failure(result);
    ERR_clear_error();
    throw TLSException(reason);
}

const BIO_METHOD* TlsTransport::wayBelow() {
    static const BIO_METHOD* const method = [] {
        BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "lorvale transport");
        BIO_meth_set_read_ex(made, readBelow);
        BIO_meth_set_write_ex(made, writeBelow);
        BIO_meth_set_ctrl(made, [](BIO* way, int request, long, void*) -> long {
            if (request == BIO_CTRL_EOF) return BIO_test_flags(way, BIO_FLAGS_IN_EOF);
            return request == BIO_CTRL_FLUSH;  // nothing is held back
        });
        return made;
    }();
    return method;
}

int TlsTransport::readBelow(BIO* way, char* into, std::size_t size, std::size_t* count) {
    auto* const self = static_cast<TlsTransport*>(BIO_get_data(way));
    return self->transferBelow([&] {
        *count = self->_below.readSome({reinterpret_cast<std::uint8_t*>(into), size});
        if (*count == 0) BIO_set_flags(way, BIO_FLAGS_IN_EOF);
        return *count;
    });
}

int TlsTransport::writeBelow(BIO* way, const char* bytes, std::size_t size, std::size_t* count) {
    auto* const self = static_cast<TlsTransport*>(BIO_get_data(way));
    const std::string_view piece(bytes, size);
    return self->transferBelow([&] { return *count = self->_below.writeSome({&piece, 1}); });
}

/// 1 when some bytes went.  An exception waits until the library has returned.
template <class Transfer>
int TlsTransport::transferBelow(const Transfer& transfer) {
    try {
        return transfer() > 0 ? 1 : 0;
    } catch (...) {
        _failureBelow = std::current_exception();
        return 0;
    }
}

}  // namespace lorvale
