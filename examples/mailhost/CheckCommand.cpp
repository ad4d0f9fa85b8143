#include <cstdio>

#include "Commands.h"
#include "Json.h"
#include "Mailbox.h"
#include "Table.h"
#include "Terminal.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/check.h"

namespace mailhost {

namespace {

using lorvale::MailboxFinding;

std::string_view severityName(MailboxFinding::Severity severity) {
    return severity == MailboxFinding::Severity::error ? "error" : "warning";
}

void printAsJson(const lorvale::MailboxReport& report) {
    for (const auto& finding : report.findings) {
        JsonObject object;
        object.add("severity", severityName(finding.severity)).add("rule", finding.rule);
        object.add("message", finding.message).add("offset", finding.offset).add("text", finding.text);
        std::printf("%s\n", object.text().c_str());
    }
    JsonObject summary;
    summary.add("messages", report.messages).add("size", report.size);
    summary.add("errors", report.count(MailboxFinding::Severity::error));
    summary.add("warnings", report.count(MailboxFinding::Severity::warning));
    std::printf("%s\n", summary.text().c_str());
}

std::string plural(std::size_t count, const char* word) {
    return groupedNumber(count) + " " + word + (count == 1 ? "" : "s");
}

void printForPeople(const lorvale::MailboxReport& report) {
    Table table({{.title = "Severity"},
                 {.title = "Message", .numeric = true},
                 {.title = "Byte", .numeric = true},
                 {.title = "What was found"}});
    for (const auto& finding : report.findings) {
        table.addRow({std::string(severityName(finding.severity)),
                      finding.message == 0 ? "" : std::to_string(finding.message),
                      groupedNumber(finding.offset), finding.text});
    }
    if (!table.empty()) {
        table.print(outputColumns(), outputIsStyled());
        std::putchar('\n');
    }
    std::printf("%s in %s: %s, %s.\n", plural(report.messages, "message").c_str(),
                plural(report.size, "byte").c_str(),
                plural(report.count(MailboxFinding::Severity::error), "error").c_str(),
                plural(report.count(MailboxFinding::Severity::warning), "warning").c_str());
}

}  // namespace

int runCheck(const Options& options) {
    const auto report = lorvale::checkMailbox(lorvale::standardizePath(options.path));
    if (!report) throw Failure(report.failure);
    if (options.json) {
        printAsJson(report);
    } else {
        printForPeople(report);
    }
    return report.count(MailboxFinding::Severity::error) == 0 ? 0 : 1;
}

}  // namespace mailhost
