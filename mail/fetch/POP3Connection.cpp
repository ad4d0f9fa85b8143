/// The conversation: connecting, logging in, what the server has.
#include "lorvale/fetch/pop3_connection.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/socket.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/format.h"
#include "mail/fetch/POP3Replies.h"

namespace lorvale {

namespace {

// Far above what servers say, far below what would hurt.
constexpr std::size_t kReplyLimit = 64 * 1024;
constexpr std::size_t kListingLimit = 256 * 1024 * 1024;
constexpr std::uint16_t kPort = 110, kSecurePort = 995;

std::uint32_t cutOff(std::optional<std::uint64_t> number) {
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(number.value_or(0), std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace

POP3Exception::~POP3Exception() = default;
POP3ConnectionDelegate::~POP3ConnectionDelegate() = default;
void POP3ConnectionDelegate::connectionReceivedNumberOfBytes(POP3Connection&, std::size_t) {}
void POP3ConnectionDelegate::connectionWillRetrieveMessageNumber(POP3Connection&, std::uint32_t,
                                                                 const POP3Header*, std::uint64_t) {}
void POP3ConnectionDelegate::connectionDidRetrieveMessageNumber(POP3Connection&, std::uint32_t) {}
POP3Spool::~POP3Spool() = default;

std::unique_ptr<POP3Connection> POP3Connection::init(MailDialect dialect) {
    auto socket = KTSocket::socket();
    return socket != nullptr ? std::make_unique<POP3Connection>(std::move(socket), dialect) : nullptr;
}

POP3Connection::POP3Connection(std::unique_ptr<KTSocket> socket, MailDialect dialect) : _dialect(dialect) {
    takeSocket(std::move(socket));
}

POP3Connection::~POP3Connection() = default;

KTSocket& POP3Connection::socket() {
    return *_socket;
}

void POP3Connection::takeSocket(std::unique_ptr<KTSocket> socket) {
    if (socket == nullptr) throw POP3Exception("The system has no socket left");
    socket->setTimeout(kTimeout);
    _sockets.push_back(std::move(socket));
    _socket = _sockets.back().get();
    if (_isShutDown) _sockets.back()->shutdown();  // it came too early for this one
}

void POP3Connection::shutdown() noexcept {
    _isShutDown = true;
    if (auto* const socket = _socket.load()) socket->shutdown();
}

void POP3Connection::abort() {
    socket().abort();
}

int POP3Connection::connectToHost(const std::string& host) {
    return connectToHost(host, 0);
}

int POP3Connection::connectToHost(const std::string& host, std::uint16_t port, POP3Security security,
                                  const TLSSettings& tls) {
    _hostname = host;
    if (port != 0) {
        socket().connectToHost(host, port);
    } else if (security == POP3Security::tls) {
        connectToService(host, "pop3s", kSecurePort);
    } else {
        connectToService(host, "pop3", kPort);
    }
    if (security == POP3Security::tls) secure(tls);
    return readGreeting();
}

void POP3Connection::connectToService(const std::string& host, const std::string& service,
                                      std::uint16_t orPort) {
    try {
        socket().connectToHost(host, service);
        return;
    } catch (const GenericException& exception) {
        debugLog("%@", exception.reason());
    }
    takeSocket(KTSocket::socket());  // a socket connects once
    if (_dialect == MailDialect::classic && orPort == kPort) {
        socket().connectToHost(host, "pop");
    } else {
        socket().connectToHost(host, orPort);  // a system without a table of services
    }
}

int POP3Connection::readGreeting() {
    return _getReply();
}

void POP3Connection::secure(const TLSSettings& tls) {
    startTLS(socket(), _hostname, tls);
    _isSecured = true;
}

void POP3Connection::negotiate(POP3Security security, const TLSSettings& tls) {
    readCapabilities();
    if (security == POP3Security::none || _isSecured) return;
    // Whoever can change what the server says could hide its offer, so without one nothing more is said.
    if (!offers("STLS") || _sendCommand("STLS") != kOK)
        throw POP3Exception(formatText("%@ offers no secure connection", _hostname));
    secure(tls);
    readCapabilities();  // what was said before may have been said by anybody
}

void POP3Connection::readCapabilities() {
    _capabilities.clear();
    if (_sendCommand("CAPA") != kOK) return;
    forEachLine(_readMultilineResponseWithMaxSize(kReplyLimit),
                [this](std::string_view line) { addCapabilities(line, _capabilities); });
}

bool POP3Connection::offers(std::string_view capability) const {
    return std::ranges::find(_capabilities, capability) != _capabilities.end();
}

void POP3Connection::tell(std::size_t bytes) {
    if (_delegate != nullptr) _delegate->connectionReceivedNumberOfBytes(*this, bytes);
}

void POP3Connection::_sendString(std::string_view text, std::string_view shown) {
    debugLog("POP3 Send: '%@'", shown);
    // ASCII alone goes over the wire, but for servers of today, which take UTF-8 (RFC 6856).
    socket().writeData(_dialect == MailDialect::standard
                           ? Data::copyOf(text)
                           : encode(text, StringEncoding::ascii, Lossy::yes).value_or(Data()));
}

const std::string& POP3Connection::_getReplyLine() {
    _line.clear();
    socket().setLineLimit(kReplyLimit);
    socket().readLine(_line);
    debugLog("POP Reply: '%@'", _line);
    tell(_line.size());
    return _line;
}

int POP3Connection::_getReply() {
    return isPositive(_getReplyLine()) ? kOK : kRefused;
}

int POP3Connection::_sendCommand(std::string_view command, std::string_view withArgument) {
    if (withArgument.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
        throw POP3Exception(formatText("What is sent with %@ may hold no line end", command));
    std::string line(command);
    if (!withArgument.empty() || command == "USER" || command == "APOP") line.append(" ").append(withArgument);
    line += "\r\n";
    _sendString(line, line);
    return _getReply();
}

/// A command of which no log tells more than its name.
int POP3Connection::_sendSecret(std::string_view command, std::string_view secret) {
    if (secret.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
        throw POP3Exception("A password may hold no line end");
    std::string line(command);
    if (!command.empty()) line += ' ';
    line.append(secret).append("\r\n");
    _sendString(line, std::string(command) + " (a secret)");
    return _getReply();
}

int POP3Connection::quit() {
    return _sendCommand("QUIT");
}

int POP3Connection::user(std::string_view name) {
    _username = name;
    return _sendCommand("USER", name);
}

int POP3Connection::pass(std::string_view password) {
    return _sendSecret("PASS", password);
}

int POP3Connection::apop(std::string_view argument) {
    return _sendSecret("APOP", argument);
}

int POP3Connection::authPlain(std::string_view name, std::string_view password) {
    constexpr std::size_t kLongestCommand = 255;  // RFC 2449, section 4
    if (password.find('\0') != std::string_view::npos || name.find('\0') != std::string_view::npos)
        throw POP3Exception("A name and a password may hold no NUL");
    _username = name;
    std::string plain(1, '\0');
    plain.append(name).append(1, '\0').append(password);
    auto coded = encodeBase64(Data::copyOf(plain)).toString();
    std::erase(coded, '\n');
    std::erase(coded, '\r');
    constexpr std::string_view kCommand = "AUTH PLAIN";
    const bool fits = kCommand.size() + 1 + coded.size() + 2 <= kLongestCommand;
    const int answer = fits ? _sendSecret(kCommand, coded) : _sendCommand(kCommand);
    return _line.starts_with("+ ") || _line == "+\r\n" ? _sendSecret("", coded) : answer;
}

int POP3Connection::stat() {
    _state = _sendCommand("STAT");
    if (_state == kOK) {
        numberOfMessagesAvailable = cutOff(numberOf(wordOf(_line, 1)));
        numberOfOctetsAvailable = cutOff(numberOf(wordOf(_line, 2)));
    }
    return _state;
}

int POP3Connection::dele(std::uint32_t number) {
    return _sendCommand("DELE", std::to_string(number));
}

int POP3Connection::list(std::int64_t number) {
    if (number >= 0) return _sendCommand("LIST", std::to_string(number));
    const int answer = _sendCommand("LIST");
    if (answer != kOK) return answer;
    auto& results = _listResults.emplace();
    forEachLine(_readMultilineResponseWithMaxSize(kListingLimit), [&](std::string_view line) {
        if (const auto listed = messageNumberOf(wordOf(line, 0)))
            results[*listed] = numberOf(wordOf(line, 1)).value_or(0);
    });
    return answer;
}

void POP3Connection::readList() {
    if (_listResults) return;
    list(-1);
    if (!_listResults) _listResults.emplace();
}

std::vector<std::uint32_t> POP3Connection::list() {
    readList();
    std::vector<std::uint32_t> numbers;
    for (const auto& [number, size] : *_listResults) numbers.push_back(number);
    return numbers;
}

std::uint64_t POP3Connection::sizeOfMessageNumber(std::uint32_t number) {
    readList();
    const auto found = _listResults->find(number);
    return found != _listResults->end() ? found->second : 0;
}

std::optional<std::map<std::uint32_t, std::string>> POP3Connection::availableMessagesUsingUIDL() {
    if (_sendCommand("UIDL") != kOK) return std::nullopt;
    std::map<std::uint32_t, std::string> identifiers;
    forEachLine(_readMultilineResponseWithMaxSize(kListingLimit), [&](std::string_view line) {
        const auto number = messageNumberOf(wordOf(line, 0));
        const auto identifier = wordOf(line, 1);
        if (number && !identifier.empty()) identifiers[*number] = identifier;
    });
    return identifiers;
}

std::string POP3Connection::_readMultilineResponseWithMaxSize(std::size_t maxSize) {
    std::string text;
    _readMultilineResponse(text, maxSize);
    return text;
}

/// Reads up to a line with a dot alone.  The classic manner leaves the dots that the server doubled as they
/// are, and mailboxes that were filled so have them; the standard one takes them away (RFC 1939, section 3).
void POP3Connection::_readMultilineResponse(std::string& text, std::size_t maxSize) {
    constexpr std::size_t kStep = 4096;
    constexpr std::string_view kEnd = ".\r\n";
    text.clear();
    std::size_t told = 0;
    for (;;) {
        const auto start = text.size();
        socket().setLineLimit(maxSize - start + kEnd.size());
        socket().readLine(text);
        if (std::string_view(text).substr(start) == kEnd) {
            text.resize(start);
            break;
        }
        if (text[start] == '.' && _dialect == MailDialect::standard) text.erase(start, 1);
        if (text.size() > maxSize)
            throw POP3Exception(formatText("%@ sends a reply of more than %@ bytes", _hostname, maxSize));
        if (text.size() - told >= kStep) tell(text.size() - std::exchange(told, text.size()));
    }
    if (text.size() > told) tell(text.size() - told);
}

}  // namespace lorvale
