/// Messages from the server into a spool.
#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "lorvale/fetch/pop3_connection.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/socket.h"
#include "lorvale/platform/user_defaults.h"
#include "lorvale/values/format.h"
#include "mail/fetch/POP3Replies.h"
#include "mail/fetch/SpoolEntry.h"
#include "mail/model/HeaderDecoding.h"

namespace lorvale {

namespace {

constexpr std::size_t kHeaderLimit = 16 * 1024 * 1024;
// Headers are remembered up to so many bytes; a server without identifiers is asked for all of them.
constexpr std::size_t kHeaderMemory = 4 * 1024 * 1024;

// For the envelope line and the panel.
constexpr std::array<std::string_view, 3> kUsualKeys = {"from", "received", "subject"};

/// Line ends as they are inside: CRLF is a matter of the wire.
std::string withNewlines(std::string_view text) {
    std::string lines;
    lines.reserve(text.size());
    forEachLine(text, [&](std::string_view line) { lines.append(line) += '\n'; });
    return lines;
}

}  // namespace

int POP3Connection::top(std::uint32_t number) {
    if (const auto known = _topResults.find(number); known != _topResults.end())
        return known->second ? kOK : kRefused;
    if (_topBytes > kHeaderMemory) forgetTops();
    const auto command = formatText("TOP %d 0\r\n", number);
    _sendString(command, command);
    return readTop(number);
}

int POP3Connection::readTop(std::uint32_t number) {
    forgetTop(number);
    auto& header = _topResults[number];
    const int answer = _getReply();
    if (answer != kOK) return answer;
    header = _readMultilineResponseWithMaxSize(kHeaderLimit);
    _topBytes += header->size();
    return answer;
}

void POP3Connection::forgetTop(std::uint32_t number) {
    const auto known = _topResults.find(number);
    if (known == _topResults.end()) return;
    if (known->second) _topBytes -= known->second->size();
    _topResults.erase(known);
}

void POP3Connection::forgetTops() {
    _topResults.clear();
    _topBytes = 0;
}

POP3Header::POP3Header(std::string block)
    : _block(std::move(block)), _usual(firstValuesInBlock(_block, kUsualKeys)) {}

std::string POP3Header::firstTextForKey(std::string_view key) const {
    const auto usual = std::ranges::find(kUsualKeys, key);
    if (usual != kUsualKeys.end())
        return _usual[static_cast<std::size_t>(usual - kUsualKeys.begin())].value_or("");
    return firstValuesInBlock(_block, std::span(&key, 1)).front().value_or("");
}

std::shared_ptr<MessageHeaders> POP3Header::headers() const {
    auto headers = decoded();
    headers->appendFromSpaceIfMissing();
    return headers;
}

std::shared_ptr<MessageHeaders> POP3Header::decoded() const {
    auto header = std::make_shared<MessageHeaders>();
    HeaderOrder order;
    auto headers = header->decodeHeadersFromData(Data::copyOf(_block), order);
    header->setAllHeaders(std::move(headers), std::move(order));
    header->setCachedHeaders(cachedHeadersInBlock(_block));
    return header;
}

std::optional<POP3Header> POP3Connection::headerOfMessageNumber(std::uint32_t number) {
    if (top(number) != kOK) return std::nullopt;
    return POP3Header(withNewlines(*_topResults[number]));
}

std::shared_ptr<MessageHeaders> POP3Connection::messageHeaderForMessageNumber(std::uint32_t number) {
    const auto header = headerOfMessageNumber(number);
    return header ? header->decoded() : nullptr;
}

void POP3Connection::fetchMessageHeaders(std::span<const std::uint32_t> numbers) {
    for (const auto number : numbers) top(number);
}

void POP3Connection::retr(std::uint32_t number, POP3Spool& toSpool) {
    if (sizeOfMessageNumber(number) == 0) return;
    top(number);
    const auto command = formatText("RETR %d\r\n", number);
    _sendString(command, command);
    readMessage(number, toSpool);
}

/// Reads the reply to RETR, and makes an entry of it.
void POP3Connection::readMessage(std::uint32_t number, POP3Spool& toSpool) {
    const auto known = headerOfMessageNumber(number);
    const auto* const header = known ? &*known : nullptr;
    forgetTop(number);  // needed no more, and there may be very many
    if (_getReply() != kOK) return;
    if (_delegate != nullptr)
        _delegate->connectionWillRetrieveMessageNumber(*this, number, header, sizeOfMessageNumber(number));
    _readMultilineResponse(_text, _largestMessage);
    _entry.clear();
    appendSpoolEntry(_entry, envelopeLineFor(header, _username, _hostname), _text);
    if (_delegate != nullptr) _delegate->connectionDidRetrieveMessageNumber(*this, number);
    toSpool.write(_entry);
}

void POP3Connection::retrieveAll(std::span<const std::uint32_t> numbers, POP3Spool& toSpool) {
    // So many messages are asked for ahead: enough that the way to the server and back costs nothing, and no
    // more than finds room on the way while nobody reads, some 6 KB.
    constexpr std::size_t kAhead = 256;
    readList();
    if (!offers("PIPELINING")) {
        for (const auto number : numbers) retr(number, toSpool);
        return;
    }
    // A header that is known serves the first time that a message is asked for, and is gone then.
    std::set<std::uint32_t> known;
    for (const auto& [number, header] : _topResults) known.insert(number);
    std::vector<bool> asksHeader(numbers.size());
    std::size_t asked = 0;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (asked < std::min(i + kAhead / 2, numbers.size())) {
            std::string commands;
            for (; asked < std::min(i + kAhead, numbers.size()); ++asked) {
                const auto number = numbers[asked];
                if (sizeOfMessageNumber(number) == 0) continue;
                asksHeader[asked] = known.erase(number) == 0;
                if (asksHeader[asked]) commands += formatText("TOP %d 0\r\n", number);
                commands += formatText("RETR %d\r\n", number);
            }
            if (!commands.empty()) _sendString(commands, commands);
        }
        if (sizeOfMessageNumber(numbers[i]) == 0) continue;
        if (asksHeader[i]) readTop(numbers[i]);
        readMessage(numbers[i], toSpool);
    }
}

std::size_t POP3Connection::fetchMessages(std::span<const std::uint32_t> numbers, POP3Spool& toSpool) {
    _fetchFailure = nullptr;
    if (messagesAvailable() == 0) return 0;
    const auto most = UserDefaults::standard().integerForKey("POP3MaximumNumberToFetch");
    if (most > 0) numbers = numbers.first(std::min(numbers.size(), static_cast<std::size_t>(most)));
    try {
        retrieveAll(numbers, toSpool);
    } catch (const std::exception& exception) {
        log("POP3Connection fetchMessages:toFileHandle: failed!");
        debugLog("%@", exception.what());
        _fetchFailure = std::current_exception();
    }
    return numbers.size();
}

void POP3Connection::deleteMessages(std::span<const std::uint32_t> numbers) {
    if (!offers("PIPELINING")) {
        for (const auto number : numbers) dele(number);
        return;
    }
    constexpr std::size_t kAhead = 64;
    for (; !numbers.empty(); numbers = numbers.subspan(std::min(kAhead, numbers.size()))) {
        std::string commands;
        const auto some = numbers.first(std::min(kAhead, numbers.size()));
        for (const auto number : some) commands += formatText("DELE %d\r\n", number);
        _sendString(commands, commands);
        for (std::size_t i = 0; i < some.size(); ++i) _getReply();
    }
}

}  // namespace lorvale
