#pragma once
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/platform/exception.h"

namespace lorvale {

class KTSocket;

inline constexpr std::string_view kTLSException = "TLSException";

/// A secured connection could not be made, or broke.  The reason is a sentence for people.
class LORVALE_EXPORT TLSException : public NamedException {
public:
    explicit TLSException(std::string_view reason) : NamedException(kTLSException, reason) {}
    ~TLSException() override;
};

/// Whom a secured connection trusts.
struct TLSSettings {
    /// A file of certificates in PEM form, of the authorities to trust in place of the system's.  Empty: those
    /// of the system, as OpenSSL is set up to find them (SSL_CERT_FILE and SSL_CERT_DIR among its ways).
    std::string authorities{};
};

/// Secures a connected socket by TLS 1.2 or later: at once behind connectToHost(), or between two lines where a
/// protocol has a word for it.  Nothing but TLS goes over the socket from here on.  The server must show a
/// certificate for that host (a name, or an address in digits) by an authority that is trusted.  Throws
/// TLSException, also where the server has sent text behind its agreement, which an eavesdropper may have put
/// there (RFC 3207, section 6); the connection serves no more then.  The socket's time-out holds.
LORVALE_EXPORT void startTLS(KTSocket& socket, const std::string& host, const TLSSettings& settings = {});

}  // namespace lorvale
