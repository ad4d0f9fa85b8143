#include <algorithm>
#include <cstdio>
#include <iterator>

#include "Commands.h"
#include "ConsoleAgent.h"
#include "Json.h"
#include "Mailbox.h"
#include "ServerMailbox.h"
#include "Table.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/platform/paths.h"
#include "lorvale/search.h"
#include "lorvale/store/check.h"

namespace mailhost {

namespace {

using lorvale::MailboxFinding;

std::string_view severityName(MailboxFinding::Severity severity) {
    return severity == MailboxFinding::Severity::error ? "error" : "warning";
}

constexpr auto kMailboxes = mailboxWord("MAILBOX", "the path of a mailbox", /*repeats=*/true);
constexpr auto kWords = std::to_array<Parameter>({kMailboxes});

void printAsJson(const std::string& path, const lorvale::MailboxReport& report) {
    LineOutput output;
    for (const auto& finding : report.findings) {
        JsonObject object;
        object.add("kind", "finding").add("path", path);
        object.add("severity", severityName(finding.severity)).add("rule", finding.rule);
        object.add("message", finding.message).add("offset", finding.offset).add("text", finding.text);
        output.write(object.text());
    }
    JsonObject summary;
    summary.add("kind", "summary").add("path", path).add("messages", report.messages).add("size", report.size);
    summary.add("errors", report.count(MailboxFinding::Severity::error));
    summary.add("warnings", report.count(MailboxFinding::Severity::warning));
    output.write(summary.text());
}

std::string plural(std::size_t count, const char* word) {
    return groupedNumber(count) + " " + word + (count == 1 ? "" : "s");
}

void printForPeople(const std::string& path, const lorvale::MailboxReport& report) {
    Table table({{.title = "Severity"},
                 {.title = "Message", .numeric = true},
                 {.title = "Byte", .numeric = true},
                 {.title = "What was found"}},
                outputColumns(), outputIsStyled());
    for (const auto& finding : report.findings) {
        table.addRow({std::string(severityName(finding.severity)),
                      finding.message == 0 ? "" : std::to_string(finding.message),
                      groupedNumber(finding.offset), finding.text});
    }
    table.finish();
    if (!table.empty()) LineOutput().write("");
    LineOutput().write(printableLine(path) + ": " + plural(report.messages, "message") + " in " +
                       plural(report.size, "byte") + ", " +
                       plural(report.count(MailboxFinding::Severity::error), "error") + ", " +
                       plural(report.count(MailboxFinding::Severity::warning), "warning") + ".");
}

/// Whether the mailbox is in order.
bool check(const std::string& path, bool asJson) {
    if (placeOnServer(path))
        throw Failure(path + ": is kept by its server; \"mailhost sync\" brings what is here in line with it");
    const auto place = lorvale::standardizePath(path);
    lorvale::MailboxReport report;
    workOn(path, sizeOfFile(place), [&] {
        report = lorvale::checkMailbox(place);
        std::ranges::move(lorvale::checkIndex(place).findings, std::back_inserter(report.findings));
    });
    if (!report) {
        say("mailhost: " + report.failure);
        return false;
    }
    if (asJson) {
        printAsJson(path, report);
    } else {
        printForPeople(path, report);
    }
    return report.count(MailboxFinding::Severity::error) == 0;
}

int run(const Arguments& arguments) {
    bool inOrder = true;
    for (const auto& path : arguments.values(kMailboxes)) inOrder &= check(path, arguments.has(kJson));
    return inOrder ? 0 : 1;
}

}  // namespace

const Command checkCommand = {
    .name = "check",
    .summary = "names every broken rule of a mailbox",
    .description =
        "Walks the file of each mailbox and names every broken rule. An error is what keeps some reader from "
        "seeing the mail as it was written; then the exit status is 1. A warning is against the rules without "
        "such harm; what is broken in the search index is one, since that is made anew from the mail.\n\n"
        "In JSON a line of kind finding has the members path, severity, rule, message, offset and text, and "
        "each "
        "mailbox ends with a line of kind summary: path, messages, size, errors and warnings.",
    .words = kWords,
    .options = {},
    .run = run,
};

}  // namespace mailhost
