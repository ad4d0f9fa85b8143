#include "mail/stores/TarnCheck.h"

#include "base/files/FileSystem.h"
#include "lorvale/platform/exception.h"
#include "lorvale/values/format.h"
#include "mail/stores/OpenMbox.h"
#include "mail/stores/TableOfContents.h"
#include "mail/stores/TarnNames.h"

namespace lorvale {

namespace {

constexpr auto kWarning = MailboxFinding::Severity::warning;
constexpr auto kError = MailboxFinding::Severity::error;

void checkAgainstMail(const TableOfContents& table, const OpenMbox& mail, MailboxReport& report) {
    const auto difference = differenceFromScan(table.messages(), mail);
    if (!table.isValid()) {
        report.findings.push_back({kWarning, "table-stale", 0, 0,
                                   "the mail was changed after the table of contents was written; the next "
                                   "writer makes the table anew"});
    } else if (!difference.empty()) {
        report.findings.push_back({kError, "table-differs", 0, 0,
                                   "the table of contents does not agree with the mail: " + difference});
    }
}

void checkTable(const std::string& path, MailboxReport& report) {
    FileStatus status;
    const auto bytes = FileSystem::current().readFile(path + '/' + std::string(kTableName), &status);
    if (!bytes || bytes->empty()) {
        report.findings.push_back({kWarning, "table-missing", 0, 0,
                                   "there is no table of contents; the next writer makes one, in which all "
                                   "messages count as read"});
        return;
    }
    try {
        const auto table = TableOfContents::ofBytes(path + '/' + std::string(kTableName), *bytes);
        const auto mail = OpenMbox::open(path + '/' + std::string(kMboxName), status);
        if (mail != nullptr) checkAgainstMail(*table, *mail, report);
    } catch (const NamedException& exception) {
        report.findings.push_back({kError, "table-damaged", 0, 0,
                                   "the table of contents is damaged, and with it what was read and deleted (" +
                                       exception.reason() + ")"});
    }
}

}  // namespace

std::string differenceFromScan(const MessageList& listed, const OpenMbox& file) {
    std::string difference;
    std::size_t found = 0;
    const bool isMail = file.scan(0, [&](const MboxEntry& entry) {
        const auto index = found++;
        if (!difference.empty() || index >= listed.size()) return;
        const auto range = static_cast<const TOCMessage&>(*listed[index]).mboxRange();
        if (range == entry.range) return;
        difference = formatText("message %d is listed at %d with %d bytes, and lies at %d with %d", index + 1,
                                range.location, range.length, entry.range.location, entry.range.length);
    });
    if (!isMail && listed.empty() && found == 0) return "";
    if (difference.empty() && found != listed.size())
        difference = formatText("%d messages are listed, and %d are there", listed.size(), found);
    return difference;
}

void checkFilesOfTarnMbox(const std::string& path, MailboxReport& report) {
    checkTable(path, report);
    auto& files = FileSystem::current();
    if (files.exists(path + '/' + std::string(kIncomingMailName))) {
        report.findings.push_back({kWarning, "incoming", 0, 0,
                                   "fetched mail waits in \"Incoming_Mail\"; the next writer takes it in"});
    }
}

}  // namespace lorvale
