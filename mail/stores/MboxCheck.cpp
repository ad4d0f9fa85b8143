#include "mail/stores/MboxCheck.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <map>

#include "base/files/FileSystem.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/constants.h"
#include "lorvale/values/format.h"
#include "lorvale/values/property_list.h"
#include "lorvale/values/text.h"
#include "mail/model/DateUtils.h"
#include "mail/stores/MboxScan.h"
#include "mail/stores/OpenStores.h"
#include "mail/stores/StoreLock.h"

namespace lorvale {

namespace {

constexpr auto kWarning = MailboxFinding::Severity::warning;
constexpr auto kError = MailboxFinding::Severity::error;
constexpr std::uint64_t kLargestMbox = std::numeric_limits<std::uint32_t>::max();

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

std::string_view lineAt(std::string_view bytes, std::size_t offset) {
    const auto end = std::min(bytes.find('\n', offset), bytes.size());
    return bytes.substr(offset, end - offset);
}

/// "Name:" at the start, the name without blanks or control characters.
bool isHeaderLine(std::string_view line) {
    const auto colon = line.find(':');
    return colon != std::string_view::npos && colon > 0 &&
           std::ranges::all_of(line.substr(0, colon), [](char c) { return c > ' ' && c != '\x7F'; });
}

/// The rules for one message, which need a look at its neighbour's end.
class MessageCheck {
public:
    MessageCheck(std::string_view file, MboxRange range, std::size_t number, Findings& findings)
        : _file(file),
          _start(range.location),
          _message(file.substr(range.location, range.length)),
          _number(number),
          _findings(findings) {}

    void run() {
        if (_number > 1) checkGapBefore();
        checkEnvelope();
        checkHeaders();
        if (const auto nul = _message.find('\0'); nul != std::string_view::npos) {
            add(kWarning, "nul", nul, "a NUL byte, at which some programs end the message");
        }
    }

private:
    void add(MailboxFinding::Severity severity, std::string_view rule, std::size_t offset, std::string text) {
        _findings.add(severity, rule, _number, _start + offset, std::move(text));
    }

    void checkGapBefore() {
        const auto before = _file.substr(0, _start);
        if (before.ends_with("\n\n") || before.ends_with("\n\r\n")) return;
        add(kWarning, "no-empty-line-before", 0,
            "no empty line before the separator, which may be a line of text: " + quoted(lineAt(_message, 0)));
    }

    /// "From ", a sender, a blank, a date.
    void checkEnvelope() {
        const auto envelope = lineAt(_message, 0).substr(kMboxSeparator.size());
        const auto blank = envelope.find_first_of(" \t");
        const auto date =
            blank == std::string_view::npos ? std::string_view() : trimmed(envelope.substr(blank));
        if (date.empty()) {
            add(kWarning, "no-envelope-date", 0, "the separator has no date: " + quoted(lineAt(_message, 0)));
        } else if (!dateInTolerantForm(date)) {
            add(kWarning, "bad-envelope-date", 0,
                "the date of the separator cannot be read: " + quoted(lineAt(_message, 0)));
        }
        const auto next = lineAt(_message, 0).size() + 1;
        if (next >= _message.size()) {
            add(kError, "no-headers", 0, "nothing follows the separator");
            return;
        }
        const auto line = trimmed(lineAt(_message, next), "\r");
        // A second envelope, escaped by a program that passed the message on, is common enough.
        if (line.empty() || isHeaderLine(line) || line.starts_with(">From ")) return;
        add(kError, "text-as-separator", 0,
            "no header follows the separator, which seems to be a line of text that nobody escaped: " +
                quoted(lineAt(_message, 0)));
    }

    void checkHeaders() {
        const auto length = mboxHeaderLength(_message);
        const auto headers = _message.substr(0, length);
        const auto crlfEnd = headers.find("\n\r\n");
        const bool seesCrlf = mailDialect() == MailDialect::standard;
        if (crlfEnd != std::string_view::npos && !seesCrlf) {
            add(kError, "crlf", crlfEnd + 1, "the empty line behind the headers ends in CRLF and is not seen");
            return;
        }
        if (!headers.ends_with("\n\n") && !(seesCrlf && headers.ends_with("\n\r\n"))) {
            add(kError, "no-header-end", 0,
                "no empty line ends the headers; all of the message is read as such");
        }
        checkHeaderLines(headers);
    }

    void checkHeaderLines(std::string_view headers) {
        for (auto at = lineAt(headers, 0).size() + 1; at < headers.size();) {
            const auto line = lineAt(headers, at);
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

    const std::string_view _file;
    const std::size_t _start;
    const std::string_view _message;
    const std::size_t _number;
    Findings& _findings;
};

void checkStart(std::string_view bytes, Findings& findings) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    const auto first = std::min(bytes.find_first_not_of(kAsciiWhite), bytes.size());
    if (first == bytes.size()) {
        if (!bytes.empty()) findings.add(kWarning, "only-white-space", 0, 0, "the file holds white space only");
    } else if (!bytes.substr(first).starts_with(kMboxSeparator)) {
        findings.add(kError, "no-separator", 0, first,
                     bytes.substr(first).starts_with(kByteOrderMark)
                         ? "a byte order mark hides the first separator, so that no message is seen"
                         : "the file does not begin with \"From \", so that no message is seen");
    } else if (first > 0) {
        findings.add(kWarning, "leading-white-space", 0, 0, "white space before the first message");
    }
}

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
    const auto bytes = files.readFile(path, &status);
    if (!bytes) {
        report.failure = status.text();
        return;
    }
    checkMboxBytes(bytes->view(), report);
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

void checkMboxBytes(std::string_view bytes, MailboxReport& report) {
    Findings findings(report);
    report.size = bytes.size();
    checkStart(bytes, findings);
    const auto ranges = mboxRanges(bytes);
    report.messages = ranges.size();
    for (std::size_t i = 0; i < ranges.size(); ++i) MessageCheck(bytes, ranges[i], i + 1, findings).run();
    if (!ranges.empty() && !bytes.ends_with('\n')) {
        findings.add(kWarning, "no-final-line-end", ranges.size(), bytes.size(),
                     "the file ends in the middle of a line");
    }
}

void checkFilesBesideMbox(const std::string& path, MailboxReport& report) {
    Findings findings(report);
    checkLock(path, findings);
    if (FileSystem::current().linkAttributes(path + ".tmp")) {
        findings.add(kWarning, "left-over", 0, 0,
                     "beside it stands a file \".tmp\" that an interrupted change left; it is not needed");
    }
}

MailboxReport checkMailbox(std::string_view path) {
    MailboxReport report;
    // Lock and left-overs lie where a symbolic link leads.
    const std::string name = standardStorePath(path);
    auto& files = FileSystem::current();
    if (!files.isDirectory(name)) {
        checkMboxFile(name, report);
    } else if (files.exists(name + "/mbox")) {
        checkMboxFile(name + "/mbox", report);
        checkAttributes(name, report);
    } else {
        report.failure = name + ": a folder without a file \"mbox\" in it";
    }
    return report;
}

}  // namespace lorvale
