#include "Summary.h"

#include <algorithm>
#include <iterator>

#include "lorvale/imap.h"
#include "lorvale/message/addresses.h"
#include "lorvale/message/mailboxes.h"
#include "lorvale/mime/dialect.h"

namespace mailhost {

namespace {

lorvale::HeaderSummary listedSummaryOf(lorvale::Message& message) {
    const auto headers = message.headers();
    return {headers->sender(), headers->subject(), {}, {}, {}, headers->knownDateReceived()};
}

}  // namespace

std::vector<std::string> recipientsOf(const lorvale::HeaderSummary& summary) {
    std::vector<std::string> recipients;
    const bool classic = lorvale::mailDialect() == lorvale::MailDialect::classic;
    for (const auto* const list : {&summary.to, &summary.cc}) {
        if (classic) {  // whose reading of a list knows no groups
            std::ranges::move(lorvale::addressList(*list).value_or(std::vector<std::string>()),
                              std::back_inserter(recipients));
            continue;
        }
        for (auto mailbox : lorvale::mailboxesInList(*list)) {
            mailbox.group.clear();
            recipients.push_back(lorvale::mailboxText(mailbox));
        }
    }
    return recipients;
}

lorvale::HeaderSummary summaryOf(lorvale::Message& message) {
    const auto headers = message.headers();
    const auto store = std::dynamic_pointer_cast<lorvale::IMAPStore>(message.messageStore());
    if (!store || store->isMirrored(message)) return headers->summary();
    return {headers->sender(), headers->subject(), {}, {}, message.messageID(), headers->knownDateReceived()};
}

Summary::Summary(lorvale::Message& message, std::size_t theNumber, Detail detail) : number(theNumber) {
    const auto summary = detail == Detail::listed ? listedSummaryOf(message) : summaryOf(message);
    const auto flags = message.messageFlags();
    size = message.messageSize();
    read = flags->isRead();
    deleted = flags->isDeleted();
    if (detail == Detail::json) {
        id = message.messageID();
        recipients = recipientsOf(summary);
    }
    from = summary.from;
    subject = summary.subject;
    date = summary.dateReceived;
    unreadable = message.bytesAreMissing();
}

JsonObject Summary::json() const {
    JsonObject object;
    object.add("number", number);
    const auto addText = [&](std::string_view key, const std::string& text) {
        if (unreadable) {
            object.addNull(key);
        } else {
            object.add(key, text);
        }
    };
    addText("id", id);
    addText("from", from);
    std::vector<std::string> addresses;
    for (const auto& recipient : recipients) addresses.push_back(jsonText(recipient));
    object.addJson("recipients", jsonArray(addresses));
    addText("subject", subject);
    if (date && !unreadable) {
        object.add("date", date->iso8601());
    } else {
        object.addNull("date");
    }
    object.add("size", size).add("read", read).add("deleted", deleted);
    if (attachments) object.add("attachments", *attachments);
    if (unreadable) object.add("unreadable", true);
    return object;
}

}  // namespace mailhost
