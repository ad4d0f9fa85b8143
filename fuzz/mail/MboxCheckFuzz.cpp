#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mail/stores/MboxCheck.h"
#include "mail/stores/MboxScan.h"

namespace {

void require(bool truth) {
    if (!truth) std::abort();
}

lorvale::MailboxReport check(std::string_view bytes, std::size_t pieces) {
    lorvale::MailboxReport report;
    lorvale::checkMboxBytes(bytes, report, pieces);
    return report;
}

}  // namespace

/// The check sees the messages that the store sees, in whatever pieces the file is read, points into the file,
/// and a mailbox without any finding can be written behind itself without breaking a rule that matters.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const auto report = check(text, size + 1);
    const auto again = check(text, 1 + size % 7);
    require(again.messages == report.messages && again.size == report.size);
    require(std::ranges::equal(again.findings, report.findings, {}, &lorvale::MailboxFinding::text,
                               &lorvale::MailboxFinding::text));
    require(report.messages == lorvale::mboxEntries(text).size());
    for (const auto& finding : report.findings) {
        require(finding.offset <= size && finding.message <= report.messages && !finding.text.empty());
    }
    if (report.findings.empty()) {
        const auto twice = check(std::string(text) + std::string(text), size + 1);
        require(twice.messages == 2 * report.messages);
        require(twice.count(lorvale::MailboxFinding::Severity::error) == 0);
    }
    return 0;
}
