#include "mail/stores/MboxScan.h"

#include <algorithm>
#include <cstring>

#include "base/text/ByteSet.h"

namespace lorvale {

namespace {

/// The next place, behind the first byte, where a message begins or, at the end of the bytes, may begin;
/// bytes.size() without one.
std::size_t findSeparator(std::string_view bytes) {
    // The capital F is far rarer in mail than the newline, so memchr() runs over long stretches at the speed of
    // memory and the rest is looked at only where it pays.
    for (std::size_t start = 1; start < bytes.size();) {
        const auto* const hit = std::memchr(bytes.data() + start, kEnvelopeMark.front(), bytes.size() - start);
        if (hit == nullptr) break;
        const auto at = static_cast<std::size_t>(static_cast<const char*>(hit) - bytes.data());
        const auto word = bytes.substr(at, kEnvelopeMark.size());
        if (bytes[at - 1] == '\n' && kEnvelopeMark.starts_with(word)) return at;
        start = at + 1;
    }
    return bytes.size();
}

std::uint64_t wordAt(const char* bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

/// Where two newlines touch; npos without such a place.
std::size_t findEmptyLine(std::string_view bytes) {
    constexpr std::uint64_t kNewlines = 0x0A0A'0A0A'0A0A'0A0A, kOnes = 0x0101'0101'0101'0101;
    std::size_t at = 0;
    // Half of all mail is headers, and find() would stop at each line: so eight places at a time.  Where both
    // words have a newline stands a zero byte, and a borrow out of one shows in the high bits.
    for (; at + sizeof(std::uint64_t) < bytes.size(); at += sizeof(std::uint64_t)) {
        const auto rest = (wordAt(bytes.data() + at) ^ kNewlines) | (wordAt(bytes.data() + at + 1) ^ kNewlines);
        if (((rest - kOnes) & ~rest & (kOnes << 7)) != 0) break;
    }
    return bytes.find("\n\n", at);
}

/// Behind the first empty line that follows a line; npos without one.
std::size_t findHeaderEnd(std::string_view bytes, bool seesCrlf) {
    constexpr std::string_view kWithCrlf = "\n\r\n";
    const auto empty = findEmptyLine(bytes);
    const auto end = empty == std::string_view::npos ? empty : empty + 2;
    if (!seesCrlf) return end;
    const auto before = bytes.substr(0, end);
    if (before.find('\r') == std::string_view::npos) return end;
    const auto crlf = before.find(kWithCrlf);
    return crlf == std::string_view::npos ? end : crlf + kWithCrlf.size();
}

std::size_t commonPrefix(std::string_view a, std::string_view b) {
    return static_cast<std::size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
}

}  // namespace

void MboxScanner::add(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto taken = step(bytes);
        _size += taken;
        bytes.remove_prefix(taken);
    }
}

/// Takes some of the bytes, or none where only the state changes.
std::size_t MboxScanner::step(std::string_view bytes) {
    if (_state == State::noMbox) return bytes.size();
    if (_atLineStart) return matchSeparator(bytes);
    if (_state == State::beforeFirst) {
        const auto white = ByteSet::asciiWhitespaceSet().findNonMember(bytes);
        _atLineStart = white < bytes.size();
        return white;
    }
    const auto next = findSeparator(bytes);
    addToMessage(bytes.substr(0, next));
    _atLineStart = bytes[next - 1] == '\n';
    return next;
}

std::size_t MboxScanner::matchSeparator(std::string_view bytes) {
    const auto wanted = kEnvelopeMark.substr(_matched);
    const auto matching = commonPrefix(bytes, wanted);
    if (matching == wanted.size()) {
        beginMessage(_size - _matched);
    } else if (matching == bytes.size()) {
        _matched += matching;
        return matching;
    } else if (_state == State::beforeFirst) {
        _state = State::noMbox;
    } else {
        addToMessage(kEnvelopeMark.substr(0, _matched));
    }
    _atLineStart = false;
    _matched = 0;
    return _state == State::inMessage && matching == wanted.size() ? matching : 0;
}

void MboxScanner::beginMessage(std::uint64_t location) {
    if (_state == State::inMessage) endMessage();
    _state = State::inMessage;
    _message = {};
    _message.range.location = static_cast<std::uint32_t>(location);
    _inHeader = true;
    _headerTail.clear();
    addToMessage(kEnvelopeMark);
}

void MboxScanner::endMessage() {
    if (_inHeader) endHeader();
    _message.bodyDigest = _digest.value();
    _digest = {};
    _found(_message);
}

void MboxScanner::addToMessage(std::string_view bytes) {
    if (bytes.empty()) return;
    if (_inHeader) {
        const auto end = headerEndIn(bytes);
        const auto header = bytes.substr(0, end);
        _digest.add(header);
        _message.range.length += static_cast<std::uint32_t>(header.size());
        if (end == std::string_view::npos) {
            _headerTail.append(header.substr(header.size() - std::min<std::size_t>(header.size(), 2)));
            _headerTail.erase(0, _headerTail.size() - std::min<std::size_t>(_headerTail.size(), 2));
            return;
        }
        endHeader();
        bytes.remove_prefix(end);
    }
    _digest.add(bytes);
    _message.range.length += static_cast<std::uint32_t>(bytes.size());
}

/// How many of these bytes still belong to the header; npos when it does not end in them.
std::size_t MboxScanner::headerEndIn(std::string_view bytes) const {
    const auto border = _headerTail + std::string(bytes.substr(0, 2));
    const auto end = findHeaderEnd(border, _seesCrlf);
    return end != std::string_view::npos ? end - _headerTail.size() : findHeaderEnd(bytes, _seesCrlf);
}

void MboxScanner::endHeader() {
    _inHeader = false;
    _message.headerLength = _message.range.length;
    _message.headerDigest = _digest.value();
    _digest = {};
}

void MboxScanner::finish() {
    if (_state == State::beforeFirst && _atLineStart) _state = State::noMbox;
    if (_state != State::inMessage) return;
    addToMessage(kEnvelopeMark.substr(0, _matched));
    endMessage();
}

std::vector<MboxEntry> mboxEntries(std::string_view bytes) {
    std::vector<MboxEntry> entries;
    MboxScanner scanner([&](const MboxEntry& entry) { entries.push_back(entry); });
    scanner.add(bytes);
    scanner.finish();
    return entries;
}

std::string_view mboxPadding(std::string_view bytes) {
    if (bytes.ends_with("\n\n")) return "";
    return bytes.ends_with('\n') ? "\n" : "\n\n";
}

}  // namespace lorvale
