#include "fuzz/FuzzTarget.h"
#include "mail/stores/MboxCheck.h"
#include "mail/stores/MboxScan.h"

namespace {

lorvale::MailboxReport check(std::string_view bytes, std::size_t pieces) {
    lorvale::MailboxReport report;
    lorvale::checkMboxBytes(bytes, report, pieces);
    return report;
}

}  // namespace

/// The check sees the messages that the store sees, in whatever pieces the file is read, points into the file,
/// and a mailbox without any finding can be written behind itself without breaking a rule that matters.
LORVALE_FUZZ_TARGET(text) {
    const auto report = check(text, text.size() + 1);
    const auto again = check(text, 1 + text.size() % 7);
    lorvale::fuzz::require(again.messages == report.messages && again.size == report.size);
    lorvale::fuzz::require(std::ranges::equal(again.findings, report.findings, {},
                                              &lorvale::MailboxFinding::text, &lorvale::MailboxFinding::text));
    lorvale::fuzz::require(report.messages == lorvale::mboxEntries(text).size());
    for (const auto& finding : report.findings) {
        lorvale::fuzz::require(finding.offset <= text.size() && finding.message <= report.messages &&
                               !finding.text.empty());
    }
    if (report.findings.empty()) {
        const auto twice = check(std::string(text) + std::string(text), text.size() + 1);
        lorvale::fuzz::require(twice.messages == 2 * report.messages);
        lorvale::fuzz::require(twice.count(lorvale::MailboxFinding::Severity::error) == 0);
    }
}
