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

lorvale::MailboxReport check(std::string_view bytes) {
    lorvale::MailboxReport report;
    lorvale::checkMboxBytes(bytes, report);
    return report;
}

}  // namespace

/// The check sees the messages that the store sees, points into the file, and a mailbox without any finding can
/// be written behind itself without breaking a rule that matters.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const auto report = check(text);
    require(report.messages == lorvale::mboxRanges(text).size());
    for (const auto& finding : report.findings) {
        require(finding.offset <= size && finding.message <= report.messages && !finding.text.empty());
    }
    if (report.findings.empty()) {
        const auto twice = check(std::string(text) + std::string(text));
        require(twice.messages == 2 * report.messages);
        require(twice.count(lorvale::MailboxFinding::Severity::error) == 0);
    }
    return 0;
}
