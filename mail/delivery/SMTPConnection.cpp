#include <algorithm>
#include <charconv>
#include <utility>

#include "base/text/Ascii.h"
#include "lorvale/delivery/smtp_connection.h"
#include "lorvale/mime.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/delivery/SMTPReplies.h"
#include "mail/delivery/ServerPlace.h"
#include "mail/delivery/TransparentText.h"

namespace lorvale {

namespace {

constexpr std::size_t kLargeWrite = 64 * 1024;
// So many replies fit into what the system keeps for us, so that the server need not wait until we read while
// we wait until it does.
constexpr std::size_t kCommandsAtOnce = 50;

constexpr std::uint16_t kRelayPort = 25, kSubmissionPort = 587, kSecuredPort = 465;

std::string base64Line(std::string_view text) {
    auto lines = encodeBase64(Data::copyOf(text)).toString();
    std::erase(lines, '\n');
    return lines;
}

std::uint16_t usualPort(const SMTPSettings& settings) {
    if (settings.security == SMTPSettings::Security::fromStart) return kSecuredPort;
    return settings.userName.empty() ? kRelayPort : kSubmissionPort;
}

}  // namespace

SMTPTransientException::~SMTPTransientException() = default;
SMTPPermanentException::~SMTPPermanentException() = default;

struct SMTPConnection::Reply {
    int code = 0;
    std::vector<std::string> lines;  // without the code
    std::string text;                // all of it, for people
};

std::unique_ptr<SMTPConnection> SMTPConnection::init(const SMTPSettings& settings, MailDialect dialect) {
    auto socket = KTSocket::socket();
    return socket ? std::make_unique<SMTPConnection>(std::move(socket), settings, dialect) : nullptr;
}

SMTPConnection::SMTPConnection(std::unique_ptr<KTSocket> socket, SMTPSettings settings, MailDialect dialect)
    : _socket(std::move(socket)),
      _settings(std::move(settings)),
      _dialect(dialect),
      _extensions(std::make_unique<SMTPExtensions>()) {
    _socket->setTimeout(_settings.timeout);
}

SMTPConnection::~SMTPConnection() = default;

void SMTPConnection::connectToHost(const std::string& host) {
    const auto place = ServerPlace::of(host);
    std::uint16_t number = usualPort(_settings);
    const char* const end = place.port.data() + place.port.size();
    const auto read = std::from_chars(place.port.data(), end, number);
    const bool isNumber = read.ec == std::errc() && read.ptr == end;
    const bool isUsual = place.port.empty() && (_dialect == MailDialect::standard || number != kRelayPort);
    if (isNumber || isUsual) {
        _socket->connectToHost(place.host, number);
    } else {
        _socket->connectToHost(place.host, place.port.empty() ? "smtp" : place.port, "tcp");
    }
    beginConversation(place.host);
}

void SMTPConnection::beginConversation(const std::string& host) {
    const bool isSecured = _settings.security == SMTPSettings::Security::fromStart;
    const bool needsWords =
        _settings.security == SMTPSettings::Security::startTLS || !_settings.userName.empty();
    if (needsWords && _dialect == MailDialect::classic)
        throw InvalidArgumentException("Classic SMTP has no words for security and logins.");
    if (isSecured) startTLS(*_socket, host, _settings.tls);
    _getReply(2);
    _hello(hostName());
    if (_settings.security == SMTPSettings::Security::startTLS) secure(host);
    if (!_settings.userName.empty()) logIn();
}

void SMTPConnection::_hello(const std::string& name) {
    if (_dialect == MailDialect::standard) return helloStandard(name);
    _sendCommand("HELO %@\r\n", name);
}

void SMTPConnection::helloStandard(const std::string& name) {
    refuseUnasked();
    *_extensions = {};
    _sendString("EHLO " + name + "\r\n");
    const auto reply = standardReply();
    if (reply.code / 100 == 5) {  // a server from before 1995
        _sendCommand("HELO %@\r\n", name);
        return;
    }
    check(reply, 2);
    for (std::size_t i = 1; i < reply.lines.size(); ++i) addExtension(*_extensions, reply.lines[i]);
}

void SMTPConnection::secure(const std::string& host) {
    if (!_extensions->startTLS)
        throw TLSException(formatText("%@ does not offer to secure the connection.", host));
    _sendCommand("STARTTLS\r\n");
    if (!_pendingData.empty())
        throw TLSException(formatText("%@ has sent text before the connection was secured.", host));
    startTLS(*_socket, host, _settings.tls);
    // Whatever it has said of itself until now may be somebody else's words.
    helloStandard(hostName());
}

void SMTPConnection::logIn() {
    const auto& [name, password] = std::tie(_settings.userName, _settings.password);
    const auto isOffered = [&](std::string_view login) {
        return std::ranges::find(_extensions->logins, login) != _extensions->logins.end();
    };
    if (isOffered("plain")) {
        using namespace std::string_literals;
        _sendCommand("AUTH PLAIN %@\r\n", base64Line("\0"s + name + "\0"s + password));
    } else if (isOffered("login")) {
        _sendCommand("AUTH LOGIN\r\n", {}, 3);
        _sendCommand("%@\r\n", base64Line(name), 3);
        _sendCommand("%@\r\n", base64Line(password));
    } else {
        throw SMTPPermanentException("The server offers no login by name and password.");
    }
}

int SMTPConnection::mailFrom(std::string_view address) {
    return _sendCommand("MAIL FROM:<%@>\r\n", path(address));
}

int SMTPConnection::rcptTo(std::string_view address) {
    return _sendCommand("RCPT TO:<%@>\r\n", path(address));
}

int SMTPConnection::startData() {
    return _sendCommand("DATA\r\n", {}, 3);
}

int SMTPConnection::endData() {
    _hasMail = false;
    return _sendCommand(".\r\n");
}

int SMTPConnection::quit() {
    return _sendCommand("QUIT\r\n");
}

int SMTPConnection::sendLine(std::string_view line) {
    if (line.empty()) _outgoing += "\r\n";
    return sendData(line);
}

int SMTPConnection::sendData(std::string_view bytes, const Progress& progress) {
    TransparentText text(bytes, _dialect);
    while (text.appendTo(_outgoing, kLargeWrite)) {
        if (_outgoing.size() < kLargeWrite) continue;
        flush();
        if (progress) progress(text.position());
    }
    return 2;
}

/// The address as it may stand in a command.
std::string SMTPConnection::path(std::string_view address) const {
    const bool isBroken = address.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
    if (isBroken) throw InvalidArgumentException(formatText("No address has a line end in it: %@", address));
    if (_dialect == MailDialect::standard && !isAscii(address) && !_extensions->utf8)
        throw SMTPPermanentException(formatText("The server takes no address outside ASCII: %@", address));
    return std::string(address);
}

std::string SMTPConnection::mailCommand(const SMTPEnvelope& envelope) const {
    if (_extensions->mostBytes > 0 && envelope.size > _extensions->mostBytes)
        throw SMTPPermanentException(formatText("The mail has %d bytes, and the server takes %d at most.",
                                                envelope.size, _extensions->mostBytes));
    auto command = "MAIL FROM:<" + path(envelope.sender) + '>';
    if (_extensions->size && envelope.size > 0) command += " SIZE=" + std::to_string(envelope.size);
    if (_extensions->eightBit && envelope.has8Bit) command += " BODY=8BITMIME";
    const bool needsUtf8 =
        !isAscii(envelope.sender) ||
        !std::ranges::all_of(envelope.recipients, [](const auto& address) { return isAscii(address); });
    if (_extensions->utf8 && needsUtf8) command += " SMTPUTF8";
    return command + "\r\n";
}

std::vector<SMTPRefusal> SMTPConnection::startMail(const SMTPEnvelope& envelope) {
    if (_dialect == MailDialect::classic)
        throw InvalidArgumentException("Classic SMTP sends one command at a time.");
    std::vector<std::string> commands = {mailCommand(envelope)};
    std::vector<SMTPRefusal> refused;
    std::vector<const std::string*> asked;
    for (const auto& recipient : envelope.recipients) {
        try {
            commands.push_back("RCPT TO:<" + path(recipient) + ">\r\n");
            asked.push_back(&recipient);
        } catch (const NamedException& exception) {
            refused.push_back({recipient, exception.reason()});
        }
    }
    if (asked.empty()) return refused;
    if (_hasMail) _sendCommand("RSET\r\n");  // one that ended before its text
    commands.push_back("DATA\r\n");
    std::optional<Reply> ofSender, ofText;
    std::size_t accepted = 0;
    exchange(commands, [&](std::size_t index, const Reply& reply) {
        if (index == 0) {
            ofSender = reply;
            return reply.code / 100 == 2;
        }
        if (index + 1 == commands.size()) {
            ofText = reply;
            return true;
        }
        if (reply.code / 100 == 2) {
            ++accepted;
        } else {
            refused.push_back({*asked[index - 1], reply.text});
        }
        return index < asked.size() || accepted > 0;
    });
    const bool isOpen = ofText && ofText->code / 100 == 3;
    _hasMail = ofSender->code / 100 == 2;
    if (!_hasMail && accepted > 0) _socket->shutdown();  // nobody knows what such a server would send
    if (accepted == 0 && isOpen) {  // RFC 2920, section 3.1: it waits for a text that there is not
        _sendString(".\r\n");
        standardReply();
    }
    check(*ofSender, 2);
    if (accepted > 0) check(*ofText, 3);
    return refused;
}

/// Sends commands, several at once where the server takes them so, until a reply says that the others are of no
/// use; each that was sent has its reply read.
void SMTPConnection::exchange(std::span<const std::string> commands,
                              const std::function<bool(std::size_t, const Reply&)>& onReply) {
    refuseUnasked();
    const std::size_t atOnce = _extensions->pipelining ? kCommandsAtOnce : 1;
    bool goesOn = true;
    for (std::size_t sent = 0, answered = 0; answered < sent || (goesOn && sent < commands.size());) {
        if (answered == sent) {
            const auto batch = commands.subspan(sent, std::min(atOnce, commands.size() - sent));
            for (const auto& command : batch) _sendString(command);
            sent += batch.size();
        }
        goesOn = onReply(answered, standardReply()) && goesOn;
        ++answered;
    }
}

int SMTPConnection::_sendCommand(std::string_view text, std::string_view withArgument, int wanted) {
    refuseUnasked();
    _sendString(formatText(text, withArgument));
    return _getReply(wanted);
}

void SMTPConnection::_sendString(std::string_view text) {
    if (_dialect == MailDialect::standard) {
        _outgoing += text;
    } else {
        _outgoing += encodeCString(text).view();
    }
}

void SMTPConnection::flush() {
    if (_outgoing.empty()) return;
    _socket->writeData(_outgoing);
    _outgoing.clear();
}

/// What comes before the command would be taken for its reply, and every reply for that of the next command.
void SMTPConnection::refuseUnasked() const {
    if (_dialect == MailDialect::classic || _pendingData.empty()) return;
    const auto line = smtpReplyLine(std::string_view(_pendingData).substr(0, _pendingData.find('\n')));
    const auto reason = formatText("The server has said, unasked: %@",
                                   _pendingData.substr(0, _pendingData.find_first_of("\r\n")));
    if (line.code / 100 == 4) throw SMTPTransientException(reason);
    throw SMTPPermanentException(reason);
}

int SMTPConnection::_getReply(int wanted) {
    flush();
    return _dialect == MailDialect::classic ? classicReply() : check(standardReply(), wanted);
}

/// Only a line that begins with a hyphen has another one behind it: programs count on it that the first line of
/// "250-..." is the reply, and the next one that to the next command.
int SMTPConnection::classicReply() {
    std::size_t skipped = 0;
    auto line = _getReplyLine();
    for (; line.starts_with('-'); line = _getReplyLine()) {
        skipped += line.size();
        if (skipped > kReplyLimit)
            throw SocketLimitException(formatText("The server's reply has more than %d bytes.", kReplyLimit));
    }
    const int replyClass = classicReplyClass(line);
    if (replyClass == 4) throw SMTPTransientException(line);
    if (replyClass > 4) throw SMTPPermanentException(line);
    return replyClass;
}

/// A whole reply, RFC 5321, section 4.2.1.
SMTPConnection::Reply SMTPConnection::standardReply() {
    flush();
    Reply reply;
    for (bool isWhole = false; !isWhole;) {
        const auto line = _getReplyLine();
        const auto parsed = smtpReplyLine(line);
        if (!reply.text.empty()) reply.text += '\n';
        reply.text += trimmed(line, "\r\n");
        if (reply.text.size() > kReplyLimit)
            throw SocketLimitException(formatText("The server's reply has more than %d bytes.", kReplyLimit));
        if (parsed.code == 0) throw SMTPPermanentException("This is no reply: " + reply.text);
        reply.code = parsed.code;
        reply.lines.emplace_back(parsed.text);
        isWhole = parsed.isLast;
    }
    // The server is about to go, whatever the command was.
    if (reply.code == 421) throw SMTPTransientException(reply.text);
    return reply;
}

int SMTPConnection::check(const Reply& reply, int wanted) {
    if (reply.code / 100 == wanted) return wanted;
    if (reply.code / 100 == 4) throw SMTPTransientException(reply.text);
    throw SMTPPermanentException(reply.text);
}

/// One line with its end.  Classic: at the end of the stream the text "4", a reply of the class of those that
/// may be different the next time.
std::string SMTPConnection::_getReplyLine() {
    for (std::size_t searched = 0;;) {
        const std::size_t newline = _pendingData.find('\n', searched);
        if (newline < kReplyLimit) {
            auto line = _pendingData.substr(0, newline + 1);
            _pendingData.erase(0, newline + 1);
            return line;
        }
        if (_pendingData.size() >= kReplyLimit)
            throw SocketLimitException(formatText("The server's reply has more than %d bytes.", kReplyLimit));
        searched = _pendingData.size();
        if (readMore()) continue;
        _pendingData.clear();
        if (_dialect == MailDialect::standard)
            throw SocketClosedException("The server has closed the connection.");
        return "4";
    }
}

bool SMTPConnection::readMore() {
    try {
        const auto data = _socket->readAvailableData();
        if (data) _pendingData += data->view();
        return data.has_value();
    } catch (const NamedException&) {
        if (_dialect == MailDialect::standard) throw;
        return false;  // classic takes a failure for the end
    }
}

}  // namespace lorvale
