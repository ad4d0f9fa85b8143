#include "mail/stores/MboxCheck.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "base/files/FileSystem.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/constants.h"
#include "lorvale/values/format.h"
#include "lorvale/values/property_list.h"
#include "lorvale/values/text.h"
#include "mail/model/DateUtils.h"
#include "mail/model/Envelope.h"
#include "mail/stores/MboxScan.h"
#include "mail/stores/OpenStores.h"
#include "mail/stores/StoreLock.h"
#include "mail/stores/TarnCheck.h"

namespace lorvale {

namespace {

constexpr auto kWarning = MailboxFinding::Severity::warning;
constexpr auto kError = MailboxFinding::Severity::error;

/// Gives bytes of the mailbox at some place, as many as there are.
using MailboxBytes = std::function<std::string(std::uint64_t offset, std::size_t length)>;

/// Collects findings, and keeps a damaged file of many gigabytes from filling the memory with them.
class Findings {
public:
    explicit Findings(MailboxReport& report) : _report(report) {}
    ~Findings() {
        for (const auto& [rule, count] : _counts) {
            if (count <= kMost) continue;
            const auto first = std::ranges::find(_report.findings, rule, &MailboxFinding::rule);
            _report.findings.push_back({first->severity, std::string(rule), 0, 0,
                                        formatText("%d more of this kind: %@", count - kMost, first->text)});
        }
    }
    Findings(const Findings&) = delete;
    Findings& operator=(const Findings&) = delete;

    /// `rule` is a literal.
    void add(MailboxFinding::Severity severity, std::string_view rule, std::size_t message, std::size_t offset,
             std::string text) {
        if (++_counts[rule] > kMost) return;
        _report.findings.push_back({severity, std::string(rule), message, offset, std::move(text)});
    }

private:
    static constexpr std::size_t kMost = 100;
    MailboxReport& _report;
    std::map<std::string_view, std::size_t> _counts;
};

/// As much of a line as a finding should quote.
std::string quoted(std::string_view line) {
    constexpr std::size_t kMost = 60;
    if (line.ends_with('\r')) line.remove_suffix(1);
    return "\"" + std::string(line.substr(0, kMost)) + (line.size() > kMost ? "..." : "") + "\"";
}

/// Empty behind the end, where another program may have cut the bytes off.
std::string_view lineAt(std::string_view bytes, std::size_t offset) {
    bytes.remove_prefix(std::min(offset, bytes.size()));
    return bytes.substr(0, bytes.find('\n'));
}

/// "Name:" at the start, the name without blanks or control characters.
bool isHeaderLine(std::string_view line) {
    const auto colon = line.find(':');
    return colon != std::string_view::npos && colon > 0 &&
           std::ranges::all_of(line.substr(0, colon), [](char c) { return c > ' ' && c != '\x7F'; });
}

/// The rules for one message, of which the headers tell all that there is to know.
class MessageCheck {
public:
    MessageCheck(const MboxEntry& entry, std::size_t number, const MailboxBytes& bytes, Findings& findings)
        : _entry(entry), _number(number), _findings(findings) {
        const auto gap = std::min<std::uint32_t>(entry.range.location, kGap);
        const auto length = std::min(entry.headerLength, kLongestHeader);
        _window = bytes(entry.range.location - gap, gap + length);
        _before = std::string_view(_window).substr(0, gap);
        _header = std::string_view(_window).substr(_before.size());
        const auto end = bytes(entry.range.location + entry.headerLength - 3, 3);
        _headerEnds = end.ends_with("\n\n") || (mailDialect() == MailDialect::standard && end == "\n\r\n");
    }

    void run() {
        if (_number > 1) checkGapBefore();
        checkEnvelope();
        checkHeaders();
    }

private:
    void add(MailboxFinding::Severity severity, std::string_view rule, std::size_t offset, std::string text) {
        _findings.add(severity, rule, _number, _entry.range.location + offset, std::move(text));
    }

    void checkGapBefore() {
        if (_before.ends_with("\n\n") || _before.ends_with("\n\r\n")) return;
        add(kWarning, "no-empty-line-before", 0,
            "no empty line before the separator, which may be a line of text: " + quoted(lineAt(_header, 0)));
    }

    /// "From ", a sender, a blank, a date.
    void checkEnvelope() {
        const auto envelope = lineAt(_header, 0);
        const auto date =
            trimmed(Envelope::parse(envelope.substr(std::min(envelope.size(), kEnvelopeMark.size()))).date);
        if (date.empty()) {
            add(kWarning, "no-envelope-date", 0, "the separator has no date: " + quoted(lineAt(_header, 0)));
        } else if (!dateInTolerantForm(date)) {
            add(kWarning, "bad-envelope-date", 0,
                "the date of the separator cannot be read: " + quoted(lineAt(_header, 0)));
        }
        const auto next = envelope.size() + 1;
        if (next >= _entry.range.length) {
            add(kError, "no-headers", 0, "nothing follows the separator");
            return;
        }
        const auto line = trimmed(lineAt(_header, next), "\r");
        // A second envelope, escaped by a program that passed the message on, is common enough.
        if (line.empty() || isHeaderLine(line) || line.starts_with(">From ")) return;
        add(kError, "text-as-separator", 0,
            "no header follows the separator, which seems to be a line of text that nobody escaped: " +
                quoted(lineAt(_header, 0)));
    }

    void checkHeaders() {
        const auto crlfEnd = _header.find("\n\r\n");
        if (crlfEnd != std::string_view::npos && mailDialect() != MailDialect::standard) {
            add(kError, "crlf", crlfEnd + 1, "the empty line behind the headers ends in CRLF and is not seen");
            return;
        }
        if (!_headerEnds) {
            add(kError, "no-header-end", 0,
                "no empty line ends the headers; all of the message is read as such");
        }
        checkHeaderLines();
    }

    void checkHeaderLines() {
        for (auto at = lineAt(_header, 0).size() + 1; at < _header.size();) {
            const auto line = lineAt(_header, at);
            if (line == "\r") break;  // the empty line at the end, with CRLF
            const bool folded = line.starts_with(' ') || line.starts_with('\t');
            const bool escaped = line.starts_with(">From ");  // see checkEnvelope()
            if (!line.empty() && !folded && !escaped && line.find(':') == std::string_view::npos) {
                add(kWarning, "header-without-colon", at, "a header line without a colon: " + quoted(line));
                return;  // one will do: text taken for headers has many
            }
            at += line.size() + 1;
        }
    }

    static constexpr std::uint32_t kGap = 3;  // "\n\r\n"
    // Far above real mail; text that is taken for headers can be as long as the file.
    static constexpr std::uint32_t kLongestHeader = 1 << 20;

    const MboxEntry _entry;
    const std::size_t _number;
    Findings& _findings;
    std::string _window;  // what stands just before the message, and its header block
    std::string_view _before, _header;
    bool _headerEnds = false;
};

/// The rules for a whole file, whose bytes come in pieces and can be looked at again.
class FileCheck {
public:
    FileCheck(MailboxBytes bytes, MailboxReport& report)
        : _bytes(std::move(bytes)), _report(report), _findings(report) {}

    std::uint64_t size() const { return _scanner.size(); }

    void add(std::string_view piece) {
        if (piece.empty()) return;
        _piece = piece;
        _pieceEnd = size() + piece.size();
        if (!_started) checkStart();
        _scanner.add(piece);
        lookForNul();
        _last = piece.back();
    }

    void finish() {
        _piece = {};
        _scanner.finish();
        _report.size = size();
        if (size() > 0 && !_started)
            _findings.add(kWarning, "only-white-space", 0, 0, "the file holds white space only");
        if (_report.messages > 0 && _last != '\n')
            _findings.add(kWarning, "no-final-line-end", _report.messages, size(),
                          "the file ends in the middle of a line");
    }

private:
    void checkStart() {
        constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        const auto white = _piece.find_first_not_of(kAsciiWhite);
        if (white == std::string_view::npos) return;
        _started = true;
        const auto first = size() + white;
        const auto word = _bytes(first, kEnvelopeMark.size());
        if (word != kEnvelopeMark) {
            _findings.add(kError, "no-separator", 0, first,
                          word.starts_with(kByteOrderMark)
                              ? "a byte order mark hides the first separator, so that no message is seen"
                              : "the file does not begin with \"From \", so that no message is seen");
        } else if (first > 0) {
            _findings.add(kWarning, "leading-white-space", 0, 0, "white space before the first message");
        }
    }

    void checkMessage(const MboxEntry& entry) {
        ++_report.messages;
        MessageCheck(entry, _report.messages, _bytes, _findings).run();
        lookForNul(entry.range.end());
        if (_nul) {
            _findings.add(kWarning, "nul", _report.messages, *_nul,
                          "a NUL byte, at which some programs end the message");
        }
        _nul.reset();
        _lookedAt = entry.range.end();
    }

    /// Looks for the first NUL of the message at hand in what came of it so far.
    void lookForNul(std::uint64_t end = kLargestMbox) {
        const auto pieceStart = _pieceEnd - _piece.size();
        const auto from = std::max(_lookedAt, pieceStart), to = std::min(end, _pieceEnd);
        if (_nul || from >= to) return;
        const auto part = _piece.substr(from - pieceStart, to - from);
        if (const auto nul = part.find('\0'); nul != std::string_view::npos) _nul = from + nul;
        _lookedAt = to;
    }

    const MailboxBytes _bytes;
    MailboxReport& _report;
    Findings _findings;
    MboxScanner _scanner{[this](const MboxEntry& entry) { checkMessage(entry); }};
    std::string_view _piece;            // the one at hand,
    std::uint64_t _pieceEnd = 0;        // and where it ends
    bool _started = false;              // something else than white space was seen
    std::optional<std::uint64_t> _nul;  // the first one in the message at hand
    std::uint64_t _lookedAt = 0;        // up to where that was looked for
    char _last = '\n';
};

void checkLock(const std::string& path, Findings& findings) {
    const std::string lockPath = path + ".lock";
    if (!FileSystem::current().linkAttributes(lockPath)) return;
    const auto bytes = FileSystem::current().readFile(lockPath);
    const LockOwner owner = parseLockFile(bytes ? bytes->view() : std::string_view());
    if (owner.host.empty() || owner.process <= 0) {
        findings.add(kWarning, "lock-unreadable", 0, 0, "there is a lock file that does not say whose it is");
    } else if (owner.host == hostName() && ::kill(owner.process, 0) != 0 && errno == ESRCH) {
        findings.add(kWarning, "lock-stale", 0, 0,
                     formatText("locked by process %d, which is gone; the next writer takes the lock over",
                                owner.process));
    } else {
        findings.add(kWarning, "locked", 0, 0,
                     formatText("locked by %@ on host %@ (process %d)", owner.user, owner.host, owner.process));
    }
}

/// The messages in a file, in blocks: a check needs no more memory for a large mailbox.
FileStatus checkMboxFile(ReadableFile& file, const std::string& path, MailboxReport& report) {
    FileCheck check(
        [&](std::uint64_t offset, std::size_t length) {
            const auto bytes = file.read(offset, length);
            return bytes ? bytes->toString() : std::string();
        },
        report);
    std::vector<char> block(kMboxBlock);
    while (check.size() <= kLargestMbox) {
        const auto count = file.readInto(block, check.size());
        if (!count) return FileStatus::failed("read", path);
        if (*count == 0) break;
        check.add({block.data(), *count});
    }
    check.finish();
    return {};
}

/// The flat file at `path`, whose messages the report is about.
void checkMboxFile(const std::string& path, MailboxReport& report) {
    auto& files = FileSystem::current();
    const auto attributes = files.attributes(path);
    if (attributes && attributes->size > static_cast<std::int64_t>(kLargestMbox)) {
        report.size = static_cast<std::uint64_t>(attributes->size);
        Findings(report).add(kError, "too-large", 0, 0, "the file is larger than 4 GB and cannot be opened");
        return;
    }
    FileStatus status;
    const auto file = files.openForReading(path, &status);
    if (file != nullptr) status = checkMboxFile(*file, path, report);
    if (!status) {
        report.failure = status.text();
        return;
    }
    checkFilesBesideMbox(path, report);
}

/// The property list that a directory mailbox keeps its attributes in; it need not be there.
void checkAttributes(const std::string& path, MailboxReport& report) {
    auto& files = FileSystem::current();
    const std::string file = path + "/" + std::string(MessageStoreUserInfo);
    if (!files.exists(file)) return;
    const auto bytes = files.readFile(file);
    const auto list = bytes ? PropertyList::parse(*bytes) : std::nullopt;
    if (!list || list->get<PropertyList::Dictionary>() == nullptr) {
        Findings(report).add(kWarning, "bad-attributes", 0, 0,
                             "\"Info.plist\" cannot be read; the sort order in it is lost");
    }
}

}  // namespace

std::size_t MailboxReport::count(MailboxFinding::Severity severity) const {
    return static_cast<std::size_t>(std::ranges::count(findings, severity, &MailboxFinding::severity));
}

void checkMboxBytes(std::string_view bytes, MailboxReport& report, std::size_t pieces) {
    FileCheck check(
        [bytes](std::uint64_t offset, std::size_t length) {
            return std::string(bytes.substr(std::min<std::uint64_t>(offset, bytes.size()), length));
        },
        report);
    for (; !bytes.empty(); bytes.remove_prefix(std::min(pieces, bytes.size())))
        check.add(bytes.substr(0, pieces));
    check.finish();
}

void checkFilesBesideMbox(const std::string& path, MailboxReport& report) {
    Findings findings(report);
    checkLock(path, findings);
    if (FileSystem::current().linkAttributes(path + ".tmp")) {
        findings.add(kWarning, "left-over", 0, 0,
                     "beside it stands a file \".tmp\" that an interrupted change left; it is not needed");
    }
    for (const auto& file : unfinishedLockFiles(path + ".lock")) {
        findings.add(
            kWarning, "left-over", 0, 0,
            formatText("a process that took the lock was killed and left %@; the next lock clears it away",
                       file));
    }
}

MailboxReport checkMailbox(std::string_view path) {
    MailboxReport report;
    if (path.empty()) {
        report.failure = "an empty path names no mailbox";
        return report;
    }
    // Lock and left-overs lie where a symbolic link leads.
    const std::string name = standardStorePath(path);
    auto& files = FileSystem::current();
    if (!files.isDirectory(name)) {
        checkMboxFile(name, report);
    } else if (files.exists(name + "/mbox")) {
        checkMboxFile(name + "/mbox", report);
        checkAttributes(name, report);
        checkFilesOfTarnMbox(name, report);
        Findings findings(report);
        checkLock(name + '/', findings);
    } else {
        report.failure = name + ": a folder without a file \"mbox\" in it";
    }
    return report;
}

}  // namespace lorvale
