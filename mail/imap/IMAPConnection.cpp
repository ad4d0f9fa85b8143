/// The life of a connection, logging in, and what a caller may do with the engine itself.
#include <algorithm>
#include <utility>

#include "lorvale/imap/connection.h"
#include "lorvale/imap/words.h"
#include "lorvale/mime.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/socket.h"
#include "lorvale/values/text.h"
#include "mail/imap/CommandFailure.h"
#include "mail/imap/Engine.h"
#include "mail/imap/ListParsing.h"

namespace lorvale {

IMAPConnectionDelegate::~IMAPConnectionDelegate() = default;
void IMAPConnectionDelegate::logCommandBegin(std::string_view, std::string_view) {}
void IMAPConnectionDelegate::logCommandEnd(std::string_view) {}
void IMAPConnectionDelegate::logResponse(std::string_view) {}
void IMAPConnectionDelegate::connectionWasDisconnected() {}
void IMAPConnectionDelegate::newMessagesHaveArrived(std::string_view, std::string_view) {}
void IMAPConnectionDelegate::messagesWereDeleted(std::span<const std::string>) {}
void IMAPConnectionDelegate::receivedFlags(const IMAPValue&, std::string_view) {}

std::shared_ptr<IMAPConnection> IMAPConnection::imapConnection(MailDialect dialect) {
    return std::make_shared<IMAPConnection>(dialect);
}

IMAPConnection::IMAPConnection(MailDialect dialect) : _engine(std::make_unique<IMAPEngine>(dialect)) {}

IMAPConnection::~IMAPConnection() = default;

MailDialect IMAPConnection::dialect() const {
    return _engine->dialect();
}

std::optional<std::string> IMAPConnection::connectToServer(const std::string& hostname) {
    if (hostname.empty() || _port < 1) return std::nullopt;
    disconnect();
    auto socket = connectedSocket(hostname);
    if (!socket) return std::nullopt;
    _hostname = hostname;
    _engine->open(std::move(socket));
    auto greeting = readGreeting();
    if (greeting && _security == Security::startTLS && !startSecurity(hostname)) {
        disconnect();
        return std::nullopt;
    }
    return greeting;
}

/// What the server told of itself before may have been put there by somebody else.
bool IMAPConnection::startSecurity(const std::string& hostname) {
    if (!_engine->run("STARTTLS", {}).isOK()) {
        log("The server %@ does not secure the connection", hostname);
        return false;
    }
    _capabilities.reset();
    learnManner();
    return _engine->secure([&](KTSocket& socket) { lorvale::startTLS(socket, hostname, _tlsSettings); });
}

std::optional<std::string> IMAPConnection::connectOverSocket(std::unique_ptr<KTSocket> socket,
                                                             const std::string& hostname) {
    disconnect();
    if (!socket) return std::nullopt;
    _hostname = hostname;
    _engine->open(std::move(socket));
    return readGreeting();
}

/// Null, after a log line, when the server cannot be reached.
std::shared_ptr<KTSocket> IMAPConnection::connectedSocket(const std::string& hostname) const {
    const auto tryToConnect = [&](auto port) {
        std::shared_ptr<KTSocket> socket = KTSocket::socket();
        if (!socket) throw GenericException("no socket is left");
        socket->setTimeout(_timeout);
        socket->connectToHost(hostname, port, "tcp");
        if (_security == Security::tls) lorvale::startTLS(*socket, hostname, _tlsSettings);
        return socket;
    };
    try {
        try {
            // The service is the one in the clear.
            if (_security == Security::tls) throw GenericException("another service");
            return tryToConnect(std::string("imap4"));
        } catch (const NamedException&) {
            if (_port > 0xFFFF) throw;
            return tryToConnect(static_cast<std::uint16_t>(_port));
        }
    } catch (const NamedException& exception) {
        log("Failed to connect to server %@ on port %d because: %@", hostname, _port, exception.reason());
        return nullptr;
    }
}

std::optional<std::string> IMAPConnection::readGreeting() {
    const auto result = _engine->readLine();
    if (result == Result::ok) _engine->setState(State::connected);
    if (result == Result::preauth) _engine->setState(State::loggedIn);
    const auto word = result == Result::ok ? "OK" : result == Result::preauth ? "PREAUTH" : "BYE";
    const auto text = _engine->takeLast(word);
    if (!text) return std::nullopt;
    auto greeting = text->toString();
    learnCapabilities(greeting);
    return greeting;
}

void IMAPConnection::disconnect() {
    _engine->disconnect();
    _hostname.clear();
    _separatorChar.reset();
    _capabilities.reset();
}

void IMAPConnection::interrupt() {
    _engine->interrupt();
}

IMAPConnection::State IMAPConnection::connectionState() const {
    return _engine->state();
}

std::string IMAPConnection::hostname() const {
    return _hostname;
}

std::int32_t IMAPConnection::port() const {
    return _port;
}

void IMAPConnection::setPort(std::int32_t port) {
    _port = port;
}

std::shared_ptr<IMAPConnectionDelegate> IMAPConnection::delegate() const {
    return _engine->delegate();
}

void IMAPConnection::setDelegate(std::weak_ptr<IMAPConnectionDelegate> delegate) {
    _engine->setDelegate(std::move(delegate));
}

void IMAPConnection::setTimeout(std::chrono::milliseconds timeout) {
    _timeout = timeout;
    _engine->setTimeout(timeout);
}

void IMAPConnection::setSecurity(Security security, TLSSettings settings) {
    _security = security;
    _tlsSettings = std::move(settings);
}

void IMAPConnection::setLimits(std::size_t responseBytes, std::size_t waitingBytes) {
    _engine->setLimits(responseBytes, waitingBytes);
}

std::uint32_t IMAPConnection::nextCommandNumber() {
    return _engine->nextCommandNumber();
}

std::uint32_t IMAPConnection::sendCommand(std::string_view command,
                                          std::span<const std::string> withArguments) {
    std::vector<CommandArgument> arguments;
    for (const auto& argument : withArguments) arguments.emplace_back(argument);
    return _engine->send(command, arguments);
}

IMAPConnection::Result IMAPConnection::readLine() {
    return _engine->readLine();
}

IMAPConnection::Result IMAPConnection::resultCodeFromString(std::string_view word) {
    static constexpr auto kWords = std::to_array<std::string_view>({"OK", "NO", "BAD", "PREAUTH", "BYE"});
    const auto found = std::ranges::find(kWords, word);
    return found == kWords.end() ? Result::other : static_cast<Result>(found - kWords.begin() + 1);
}

IMAPConnection::Result IMAPConnection::resultCodeForCommandNumber(std::uint32_t tag) {
    return _engine->wait(tag);
}

IMAPConnection::Untagged IMAPConnection::untaggedResponses() const {
    return _engine->untagged();
}

void IMAPConnection::didFinishCommand(std::string_view) {
    _engine->didFinishCommand();
}

std::string IMAPConnection::refusal() const {
    return reasonForPeople(_engine->refusal());
}

std::vector<std::string> IMAPConnection::capabilities() {
    if (_capabilities) return *_capabilities;
    _engine->run("CAPABILITY", {}, [&](const auto&) {
        const auto line = _engine->takeLast("CAPABILITY");
        if (!line) return;
        _capabilities.emplace();
        for (const auto word : split(line->view(), ' '))
            if (!word.empty()) _capabilities->emplace_back(word);
    });
    if (_engine->isStandard()) learnManner();
    return _capabilities.value_or(std::vector<std::string>());
}

bool IMAPConnection::hasCapability(std::string_view name) {
    (void)capabilities();
    return isKnownToHave(name);
}

/// Servers of today tell what they can do with the greeting and with the answer to a login, which saves a
/// question (RFC 3501, section 7.1).  Otherwise what was known may be true no longer.
void IMAPConnection::learnCapabilities(const std::optional<std::string>& answer) {
    if (!_engine->isStandard()) return;
    _capabilities.reset();
    const auto told = responseValue(answer ? std::string_view(*answer) : "", MailDialect::standard);
    if (equalIgnoringAsciiCase(told.key, "CAPABILITY") && told.value) {
        _capabilities.emplace();
        for (const auto word : split(*told.value, ' ')) _capabilities->emplace_back(word);
    }
    learnManner();
}

bool IMAPConnection::isKnownToHave(std::string_view capability) const {
    return _capabilities && std::ranges::any_of(*_capabilities, [&](const auto& each) {
               return equalIgnoringAsciiCase(each, capability);
           });
}

void IMAPConnection::learnManner() {
    constexpr std::size_t kSmallLiteral = 4096;  // of LITERAL-
    auto manner = _engine->manner();
    manner.freeLiteral = isKnownToHave("LITERAL+")   ? std::string::npos
                         : isKnownToHave("LITERAL-") ? kSmallLiteral
                                                     : 0;
    _engine->setManner(manner);
}

/// From here on names are UTF-8 on the wire, and so may be what a server tells (RFC 6855).
void IMAPConnection::acceptUTF8() {
    if (!isKnownToHave("ENABLE") || !isKnownToHave("UTF8=ACCEPT")) return;
    const CommandArgument arguments[] = {"UTF8=ACCEPT"};
    _engine->run("ENABLE", arguments, [&](const auto& answer) {
        const auto enabled = _engine->takeLast("ENABLED");
        if (!answer.isOK() || !enabled) return;
        auto manner = _engine->manner();
        manner.utf8 = std::ranges::any_of(split(enabled->view(), ' '), [](std::string_view word) {
            return equalIgnoringAsciiCase(word, "UTF8=ACCEPT");
        });
        _engine->setManner(manner);
    });
}

void IMAPConnection::noop() {
    _engine->run("NOOP", {});
}

std::optional<std::string> IMAPConnection::logout() {
    std::optional<std::string> farewell;
    const auto answer = _engine->run("LOGOUT", {}, [&](const auto& given) {
        const auto text = given.isOK() ? _engine->takeLast("BYE") : std::nullopt;
        if (text) farewell = text->toString();
    });
    if (farewell) _engine->setState(State::loggedOut);
    if (farewell || (_engine->isStandard() && answer.isOK())) disconnect();
    return farewell;
}

bool IMAPConnection::login(std::string_view user, std::string_view password, std::string* errorString) {
    using Kind = CommandArgument::Kind;
    if (_engine->isStandard() && isKnownToHave("LOGINDISABLED")) {
        // Whoever listens must not learn the password from a command that fails anyway.
        if (errorString != nullptr)
            fillCommandFailure(*errorString, "LOGIN", {Result::no, LVLocalizedString("not in the clear")},
                               dialect());
        return false;
    }
    const CommandArgument arguments[] = {{Kind::text, user}, {Kind::password, password}};
    return finishLogin(_engine->send("LOGIN", arguments), "LOGIN", errorString);
}

bool IMAPConnection::authenticatePlain(std::string_view user, std::string_view password,
                                       std::string* errorString) {
    const CommandArgument arguments[] = {"PLAIN"};
    const auto tag = _engine->send("AUTHENTICATE", arguments);
    if (_engine->wait(tag) == Result::continuation) {
        const auto secret = std::string(1, '\0') + std::string(user) + '\0' + std::string(password);
        auto line = encodeBase64(Data::copyOf(secret)).toString();
        std::erase_if(line, [](char c) { return c == '\n' || c == '\r'; });
        _engine->write({line, "\r\n"});
    }
    return finishLogin(tag, "AUTHENTICATE", errorString);
}

bool IMAPConnection::finishLogin(std::uint32_t tag, std::string_view command, std::string* errorString) {
    const auto answer = _engine->answer(tag, _engine->wait(tag));
    _engine->setStateIfConnected(answer.isOK() ? State::loggedIn : State::connected);
    if (!answer.isOK() && errorString != nullptr) fillCommandFailure(*errorString, command, answer, dialect());
    learnCapabilities(answer.text);
    _engine->finish(tag);
    if (answer.isOK()) acceptUTF8();
    return answer.isOK();
}

}  // namespace lorvale
