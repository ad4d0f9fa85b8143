#include "mail/imap/Engine.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "base/text/Ascii.h"
#include "lorvale/imap/words.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/values/text.h"
#include "mail/imap/Digits.h"
#include "mail/imap/FetchParsing.h"

namespace lorvale {

namespace {

/// What an entry costs beside its bytes, so that a million empty ones are not free.
constexpr std::size_t kEntryCost = 128;

/// Texts of at least this size keep the reader's buffer, others are copied out of it.
constexpr std::size_t kWorthABuffer = 64 * 1024;

}  // namespace

void IMAPEngine::setStateIfConnected(State state) {
    if (_state != State::notConnected) _state = state;
}

void IMAPEngine::open(std::shared_ptr<KTSocket> socket) {
    const MutexLock lock(_socketMutex);
    socket->setTimeout(_timeout);
    _socket = std::move(socket);
}

bool IMAPEngine::secure(const std::function<void(KTSocket&)>& start) {
    std::string why = "no connection";
    try {
        if (const auto open = socket()) {
            const MutexLock lock(_lock);
            start(*open);
            return true;
        }
    } catch (const std::exception& exception) {
        why = exception.what();
    }
    lose(formatText("The connection could not be secured: %@", why));
    return false;
}

std::shared_ptr<KTSocket> IMAPEngine::socket() const {
    const MutexLock lock(_socketMutex);
    return _socket;
}

void IMAPEngine::interrupt() {
    if (const auto open = socket()) open->shutdown();
}

void IMAPEngine::disconnect() {
    interrupt();
    const MutexLock lock(_lock);
    {
        const MutexLock socketLock(_socketMutex);
        _socket = nullptr;
    }
    _state = State::notConnected;
    _commandNumber = 0;
    _manner = CommandManner{_dialect};
    (void)_reader.takeBuffer();
    _outstandingCommands.clear();
    _commandResponses.clear();
    _untaggedResponses.clear();
    _waitingBytes = 0;
    _messageCount = 0;
}

void IMAPEngine::setTimeout(std::chrono::milliseconds timeout) {
    const MutexLock lock(_socketMutex);
    _timeout = timeout;
    if (_socket) _socket->setTimeout(timeout);
}

void IMAPEngine::setLimits(std::size_t responseBytes, std::size_t waitingBytes) {
    const MutexLock lock(_lock);
    _reader.setLimit(responseBytes);
    _waitingLimit = waitingBytes;
}

std::shared_ptr<IMAPConnectionDelegate> IMAPEngine::delegate() const {
    const MutexLock lock(_socketMutex);
    return _delegate.lock();
}

void IMAPEngine::setDelegate(std::weak_ptr<IMAPConnectionDelegate> delegate) {
    const MutexLock lock(_socketMutex);
    _delegate = std::move(delegate);
}

void IMAPEngine::setManner(const CommandManner& manner) {
    const MutexLock lock(_lock);
    _manner = manner;
    _manner.dialect = _dialect;
}

CommandManner IMAPEngine::manner() const {
    const MutexLock lock(_lock);
    return _manner;
}

/// Nothing more comes from this server.
void IMAPEngine::lose(std::string_view why) {
    logLine(why);
    {
        const MutexLock lock(_lock);
        _outstandingCommands.clear();
        const MutexLock socketLock(_socketMutex);
        _socket = nullptr;
    }
    _state = State::notConnected;
    if (const auto listener = delegate()) listener->connectionWasDisconnected();
}

std::uint32_t IMAPEngine::nextCommandNumber() {
    const MutexLock lock(_lock);
    return _commandNumber++;
}

template <class Write>
bool IMAPEngine::writeLocked(Write write) {
    std::string why;
    try {
        const auto open = socket();
        if (!open) throw SocketClosedException("no connection");
        const MutexLock lock(_lock);
        write(*open);
        return true;
    } catch (const std::exception& exception) {
        debugLog("KTSocket: %@", exception.what());
    }
    lose("KTSocket writeData Failed!!!");
    return false;
}

bool IMAPEngine::write(std::initializer_list<std::string_view> pieces) {
    return writeLocked([&](KTSocket& open) { open.writeData(std::span(pieces.begin(), pieces.size())); });
}

std::uint32_t IMAPEngine::send(std::string_view word, std::span<const CommandArgument> arguments) {
    const auto number = nextCommandNumber();
    const auto tag = std::to_string(number);
    const auto text = commandText(tag, word, arguments, manner());
    if (const auto listener = delegate()) listener->logCommandBegin(tag, text.whole());
    sendPieces(text, number);
    return number;
}

bool IMAPEngine::sendPieces(const CommandText& text, std::uint32_t tag) {
    const auto name = std::to_string(tag);
    for (std::size_t i = 0; i < text.pieces.size(); ++i) {
        if (i > 0 && wait(tag) != Result::continuation) return false;
        if (!write({text.pieces[i]})) return false;
        // To a server that has refused the connection a command goes out, but nobody waits for its answer.
        if (i > 0 || state() == State::notConnected) continue;
        const MutexLock lock(_lock);
        _outstandingCommands.insert(name);
    }
    return true;
}

/// One response.  Its views are on `whole`, or where that is empty on bytes that the reader keeps until the
/// next.
struct IMAPEngine::Response {
    ParsedResponse parsed;
    Data whole;

    bool isOfAMessage() const {
        return parsed.kind == ParsedResponse::Kind::untagged && !parsed.key.empty() &&
               isAsciiDigit(parsed.key.front()) && parsed.text;
    }
};

IMAPEngine::Response IMAPEngine::read(KTSocket& socket, bool isWanted) {
    const auto line = _reader.read(socket);
    Response response{parseResponse(line, _dialect), {}};
    const bool isLarge = response.parsed.text && response.parsed.text->size() >= kWorthABuffer;
    if (isWanted || isLarge || (_receiver != nullptr && response.isOfAMessage()))
        response.whole = _reader.takeBuffer();
    return response;
}

IMAPEngine::Result IMAPEngine::readLine() {
    const auto listener = delegate();
    Response response;
    std::string answeredTag;
    auto result = Result::other;
    try {
        const auto open = socket();
        if (!open) return Result::bad;
        const MutexLock lock(_lock);
        response = read(*open, listener != nullptr);
        if (response.parsed.kind == ParsedResponse::Kind::tagged) answeredTag = response.parsed.tag;
        if (_receiver == nullptr || !response.isOfAMessage()) result = note(response);
    } catch (const std::exception& exception) {
        debugLog("KTSocket: %@", exception.what());
        lose("Exception occurred while reading line from IMAP server.");
        return Result::bad;
    }
    if (listener) {
        listener->logResponse(response.whole.view());
        if (!answeredTag.empty()) listener->logCommandEnd(answeredTag);
    }
    return _receiver != nullptr && response.isOfAMessage() ? receiveOrNote(response) : result;
}

IMAPEngine::Result IMAPEngine::receiveOrNote(const Response& response) {
    bool isTaken = false;
    try {
        isTaken = (*_receiver)(response.parsed.key, response.whole.subdata(*response.parsed.text));
    } catch (...) {
        lose("What a message was for has thrown an exception.");
        throw;
    }
    if (isTaken && _expected > 0) {
        --_expected;
        return Result::other;
    }
    try {
        const MutexLock lock(_lock);
        if (!isTaken) return note(response);
        count(response.whole.size());
        return Result::other;
    } catch (const std::exception& exception) {
        lose(exception.what());
        return Result::bad;
    }
}

IMAPEngine::Result IMAPEngine::note(const Response& noted) {
    const auto& response = noted.parsed;
    const auto key = isStandard() ? asciiUppered(response.key) : std::string(response.key);
    switch (response.kind) {
        case ParsedResponse::Kind::empty:
        case ParsedResponse::Kind::continuation:
            count(0);  // no server sends these for ever
            return response.kind == ParsedResponse::Kind::empty ? Result::other : Result::continuation;
        case ParsedResponse::Kind::untagged:
            if (!key.empty() && response.text)
                keep(key, *response.text, noted.whole);
            else
                count(0);
            break;
        case ParsedResponse::Kind::tagged:
            const auto tag = std::string(response.tag);
            const bool wasSent = _outstandingCommands.erase(tag) > 0;
            // An answer to nothing is none; the classic dialect keeps it for when the tag comes up.
            if (key.empty() || !response.text || (isStandard() && !wasSent)) {
                count(0);
                break;
            }
            count(tag.size() + response.text->size());
            _commandResponses[tag] = {IMAPConnection::resultCodeFromString(key), std::string(*response.text)};
            break;
    }
    return IMAPConnection::resultCodeFromString(key);
}

void IMAPEngine::keep(std::string_view key, std::string_view text, const Data& whole) {
    count(key.size() + text.size());
    if (key == IMAPResponseExist) _messageCount = wholeNumber<std::size_t>(text).value_or(0);
    auto place = _untaggedResponses.find(key);
    if (place == _untaggedResponses.end()) place = _untaggedResponses.try_emplace(std::string(key)).first;
    if (text.size() < kWorthABuffer) {
        place->second.push_back(Data::copyOf(text));
        return;
    }
    place->second.push_back(whole.subdata(text));
}

void IMAPEngine::count(std::size_t bytes) {
    _waitingBytes += bytes + kEntryCost;
    if (_waitingBytes > _waitingLimit)
        throw SocketLimitException(formatText("more than %d bytes that nobody asked for", _waitingLimit));
}

bool IMAPEngine::isOutstanding(std::uint32_t tag) const {
    const MutexLock lock(_lock);
    return _outstandingCommands.contains(std::to_string(tag));
}

bool IMAPEngine::isWaitedFor(std::uint32_t tag) const {
    return isOutstanding(tag) && !isAnswered(tag);
}

bool IMAPEngine::isAnswered(std::uint32_t tag) const {
    const MutexLock lock(_lock);
    return _commandResponses.contains(std::to_string(tag));
}

IMAPEngine::Result IMAPEngine::wait(std::uint32_t tag) {
    if (isStandard() && isAnswered(tag)) return answer(tag, Result::other).result;
    if (!isOutstanding(tag)) return Result::other;
    while (true) {
        const auto result = readLine();
        if (result == Result::continuation || state() == State::notConnected) return result;
        // The classic dialect takes any line that says BAD for the answer.
        if (!isStandard() && result == Result::bad) return result;
        if (!isAnswered(tag)) continue;
        return isStandard() ? answer(tag, result).result : result;
    }
}

IMAPEngine::Answer IMAPEngine::answer(std::uint32_t tag, Result result) const {
    const MutexLock lock(_lock);
    const auto found = _commandResponses.find(std::to_string(tag));
    if (found == _commandResponses.end()) return {result, std::nullopt};
    return {isStandard() ? found->second.result : result, found->second.text};
}

void IMAPEngine::forget(std::uint32_t tag) {
    const MutexLock lock(_lock);
    const auto told = _commandResponses.extract(std::to_string(tag));
    const bool isRefusal = told && (told.mapped().result == Result::no || told.mapped().result == Result::bad);
    _refusal = isRefusal ? told.mapped().text.value_or("") : "";
}

std::string IMAPEngine::refusal() const {
    const MutexLock lock(_lock);
    return _refusal;
}

void IMAPEngine::finish(std::uint32_t tag) {
    forget(tag);
    didFinishCommand();
}

IMAPEngine::Answer IMAPEngine::ask(std::string_view word, std::span<const CommandArgument> arguments) {
    const auto tag = send(word, arguments);
    auto found = answer(tag, wait(tag));
    forget(tag);
    return found;
}

IMAPEngine::Answer IMAPEngine::receive(std::string_view word, std::span<const CommandArgument> arguments,
                                       std::size_t expected, const Receiver& receiver) {
    struct Receiving {
        const Receiver*& place;
        Receiving(const Receiver*& where, const Receiver& what) : place(where) { place = &what; }
        ~Receiving() { place = nullptr; }
        Receiving(const Receiving&) = delete;
        Receiving& operator=(const Receiving&) = delete;
    } const receiving(_receiver, receiver);
    _expected = expected;
    return ask(word, arguments);
}

bool IMAPEngine::waitForInput(std::chrono::milliseconds atMost) {
    const auto open = socket();
    return !open || open->waitForInput(atMost);
}

void IMAPEngine::wake() {
    if (const auto open = socket()) open->wake();
}

IMAPEngine::Answer IMAPEngine::run(std::string_view word, std::span<const CommandArgument> arguments,
                                   const std::function<void(const Answer&)>& look) {
    auto found = ask(word, arguments);
    if (look) look(found);
    didFinishCommand();
    return found;
}

void IMAPEngine::didFinishCommand() {
    Untagged left;
    {
        const MutexLock lock(_lock);
        left = std::exchange(_untaggedResponses, {});
        _waitingBytes = 0;
    }
    const auto listener = delegate();
    if (!listener) return;
    const auto last = [&](std::string_view key) {
        const auto found = left.find(key);
        return found == left.end() ? std::nullopt : std::optional(found->second.back().toString());
    };
    const auto recent = last(IMAPResponseRecent), exist = last(IMAPResponseExist);
    if (exist && (recent || isStandard())) listener->newMessagesHaveArrived(recent.value_or("0"), *exist);

    auto& agent = userAgentOrAbsent();
    if (const auto expunged = left.find(IMAPResponseExpunge); expunged != left.end()) {
        std::vector<std::string> numbers;
        for (const auto& number : expunged->second) numbers.push_back(number.toString());
        agent.performInMainThread([weak = std::weak_ptr(listener), numbers = std::move(numbers)] {
            if (const auto target = weak.lock()) target->messagesWereDeleted(numbers);
        });
    }
    for (const auto& [key, texts] : left) {
        if (!isAsciiDigit(key.front())) continue;
        auto flags = parseFlagsResponse(texts, _dialect);
        if (!flags) continue;
        agent.performInMainThread([weak = std::weak_ptr(listener), flags = *std::move(flags), key = key] {
            if (const auto target = weak.lock()) target->receivedFlags(flags, key);
        });
    }
}

IMAPEngine::Untagged IMAPEngine::untagged() const {
    const MutexLock lock(_lock);
    return _untaggedResponses;
}

std::size_t IMAPEngine::messageCount() const {
    const MutexLock lock(_lock);
    return _messageCount;
}

void IMAPEngine::forgetMessageCount() {
    const MutexLock lock(_lock);
    _messageCount = 0;
}

std::vector<Data> IMAPEngine::take(std::string_view key) {
    const MutexLock lock(_lock);
    const auto found = _untaggedResponses.find(key);
    if (found == _untaggedResponses.end()) return {};
    auto texts = std::move(found->second);
    _untaggedResponses.erase(found);
    return texts;
}

std::vector<Data> IMAPEngine::look(std::string_view key) const {
    const MutexLock lock(_lock);
    const auto found = _untaggedResponses.find(key);
    return found == _untaggedResponses.end() ? std::vector<Data>() : found->second;
}

std::optional<Data> IMAPEngine::takeLast(std::string_view key) {
    const auto texts = take(key);
    return texts.empty() ? std::nullopt : std::optional(texts.back());
}

std::vector<std::pair<std::string, Data>> IMAPEngine::takeNumbered() {
    const MutexLock lock(_lock);
    std::vector<std::pair<std::string, Data>> taken;
    std::erase_if(_untaggedResponses, [&](auto& entry) {
        if (!isAsciiDigit(entry.first.front())) return false;
        for (auto& text : entry.second) taken.emplace_back(entry.first, std::move(text));
        return true;
    });
    return taken;
}

}  // namespace lorvale
