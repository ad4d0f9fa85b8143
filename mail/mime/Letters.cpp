#include "lorvale/body/letters.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/text/Cursor.h"
#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

/// The first value as text, dates too; empty without one.
std::string headerText(MessageHeaders& headers, std::string_view key) {
    const auto values = headers.objectsForKey(key);
    return values && !values->empty() ? values->front() : std::string();
}

/// Every value of it, as one list.
std::vector<Mailbox> mailboxesUnder(MessageHeaders& headers, std::string_view key) {
    std::vector<Mailbox> all;
    for (const auto& value : headers.objectsForKey(key).value_or(std::vector<std::string>()))
        std::ranges::move(mailboxesInList(value), std::back_inserter(all));
    std::erase_if(all, [](const Mailbox& mailbox) { return mailbox.address.empty(); });
    for (auto& mailbox : all) mailbox.group.clear();  // of the original, and nobody's to answer to
    return all;
}

void setMailboxes(MessageHeaders& headers, std::string_view name, const std::vector<Mailbox>& mailboxes) {
    if (!mailboxes.empty()) headers.setObject(mailboxListText(mailboxes), name);
}

/// Who gets a reply: nobody twice, and not the user but where he writes to himself.
class Recipients {
public:
    explicit Recipients(std::string_view from) {
        const auto own = mailboxesInList(from);
        if (!own.empty()) _own = own.front().address;
    }

    bool isOwn(const Mailbox& mailbox) const {
        return equalIgnoringAsciiCase(mailbox.address, _own) || isMyAddress(mailbox.address);
    }
    bool areOwn(const std::vector<Mailbox>& mailboxes) const {
        return !mailboxes.empty() && std::ranges::all_of(mailboxes, [this](auto& each) { return isOwn(each); });
    }
    std::vector<Mailbox> others(const std::vector<Mailbox>& mailboxes) {
        std::vector<Mailbox> fresh;
        for (const auto& mailbox : mailboxes)
            if (!isOwn(mailbox) && _known.insert(asciiLowered(mailbox.address)).second)
                fresh.push_back(mailbox);
        return fresh;
    }

private:
    std::string _own;
    std::set<std::string> _known;
};

void addRecipients(MessageHeaders& reply, MessageHeaders& original, ReplyTo whom, std::string_view from) {
    Recipients recipients(from);
    const auto sender = mailboxesUnder(original, "from"), to = mailboxesUnder(original, "to");
    auto asked = mailboxesUnder(original, "reply-to");
    if (asked.empty()) asked = sender;
    const bool isOwnLetter = recipients.areOwn(sender) && !to.empty();
    auto answered = recipients.others(isOwnLetter ? to : asked);
    if (answered.empty()) answered = isOwnLetter ? to : asked;  // a letter to oneself
    setMailboxes(reply, "To", answered);
    if (whom == ReplyTo::sender) return;
    auto copies = isOwnLetter ? std::vector<Mailbox>() : recipients.others(to);
    std::ranges::move(recipients.others(mailboxesUnder(original, "cc")), std::back_inserter(copies));
    setMailboxes(reply, "Cc", copies);
}

/// The identifiers in a header, angle brackets and all.
std::vector<std::string> identifiersIn(std::string_view value) {
    std::vector<std::string> all;
    for (Cursor in(value); !in.atEnd();) {
        in.takeUntil('<');
        const auto id = in.takeUntil('>');
        if (in.skip('>') && id.find_first_of(kAsciiWhite) == std::string_view::npos)
            all.push_back(std::string(id) + ">");
    }
    return all;
}

/// RFC 5322, section 3.6.4.
void addThread(MessageHeaders& reply, MessageHeaders& original) {
    // A thread of years keeps its beginning and its latest letters; a header has limits.
    constexpr std::size_t kMost = 40;
    const auto id = identifiersIn(headerText(original, "message-id"));
    auto references = identifiersIn(headerText(original, "references"));
    if (references.empty()) {
        references = identifiersIn(headerText(original, "in-reply-to"));
        if (references.size() > 1) references.clear();  // which of them came last, nobody knows
    }
    if (!id.empty()) {
        reply.setObject(id.front(), "In-Reply-To");
        references.push_back(id.front());
    }
    if (references.size() > kMost)
        references.erase(references.begin() + 1, references.end() - static_cast<std::ptrdiff_t>(kMost - 1));
    std::string all;
    for (const auto& each : references) all += (all.empty() ? "" : " ") + each;
    if (!all.empty()) reply.setObject(all, "References");
}

std::string subjectWith(std::string_view mark, MessageHeaders& original) {
    const auto subject = headerText(original, "subject");
    const bool hasMark =
        equalIgnoringAsciiCase(subject.substr(0, mark.size() - 1), mark.substr(0, mark.size() - 1));
    return hasMark ? subject : std::string(mark) + subject;
}

AttributedText textOf(Message& original) {
    const auto body = original.messageBody();
    const auto text = body ? body->decodedBody() : nullptr;
    return text ? *text : AttributedText();
}

/// What people call the sender.
std::string senderName(MessageHeaders& original) {
    const auto senders = mailboxesUnder(original, "from");
    if (senders.empty()) return headerText(original, "from");
    const auto& [name, address, comment, group] = senders.front();
    return !name.empty() ? name : !comment.empty() ? comment : address;
}

std::string introduction(MessageHeaders& original) {
    const auto date = dateInCommonFormatsWithString(headerText(original, "date"));
    if (!date) return formatText("%@ wrote:\n", senderName(original));
    return formatText("On %@, %@ wrote:\n", date->descriptionWithCalendarFormat("%a, %d %b %Y at %H:%M"),
                      senderName(original));
}

/// A value as one line of text.
std::string onOneLine(std::string_view value) {
    std::string line(value);
    std::ranges::replace_if(
        line, [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return line;
}

AttributedText forwardedText(Message& original) {
    std::string head = "\n-------- Forwarded message --------\n";
    for (const std::string_view name : {"From", "Date", "To", "Cc", "Subject"}) {
        const auto value = headerText(*original.headers(), asciiLowered(name));
        if (!value.empty()) head += std::string(name) + ": " + onOneLine(value) + "\n";
    }
    AttributedText text(head + "\n");
    text.append(textOf(original));
    return text;
}

}  // namespace

std::shared_ptr<Message> newLetter(std::string_view from, SendFormat format) {
    static const auto& mimeClass = *new MessageBodyClass{"MimeBody", MimeBody::willingnessToDecode,
                                                         [] { return std::make_shared<MimeBody>(); }};
    auto letter =
        Message::emptyMessageWithBodyClass(format == SendFormat::MIME ? mimeClass : PlainBody::bodyClass());
    if (!from.empty()) letter->headers()->setObject(from, "From");
    return letter;
}

std::shared_ptr<Message> replyTo(Message& original, ReplyTo whom, std::string_view from, SendFormat format) {
    auto reply = newLetter(from, format);
    const auto headers = original.headers();
    addRecipients(*reply->headers(), *headers, whom, from);
    reply->headers()->setObject(subjectWith("Re: ", *headers), "Subject");
    addThread(*reply->headers(), *headers);
    reply->messageBody()->setDecodedBody(AttributedText(introduction(*headers) + quotedText(textOf(original))));
    return reply;
}

std::shared_ptr<Message> forwardOf(Message& original, std::string_view from, SendFormat format) {
    auto letter = newLetter(from, format);
    letter->headers()->setObject(subjectWith("Fwd: ", *original.headers()), "Subject");
    letter->messageBody()->setDecodedBody(forwardedText(original));
    return letter;
}

void completeLetter(Message& letter) {
    const auto headers = letter.headers();
    headers->allHeaders();  // which a change needs
    const auto all = headers->allHeaders();
    const auto first = [&](std::string_view key) {
        const auto found = all->find(key);
        return found == all->end() || found->second.empty() ? std::string() : found->second.front();
    };
    const auto date = first("date").empty() ? dateHeaderText(Date::now()) : first("date");
    if (first("date").empty()) headers->setObject(date, "Date");
    if (first("message-id").empty()) {
        const auto sender = mailboxesInList(first("from"));
        const auto address = sender.empty() ? std::string() : sender.front().address;
        headers->setObject(makeMessageID(std::string_view(address).substr(address.rfind('@') + 1)),
                           "Message-ID");
    }
    CachedHeaders listed;
    listed.set("from", first("from"));
    listed.set("subject", first("subject"));
    listed.set("date", date);
    headers->setCachedHeaders(listed);
}

std::string quotedText(const AttributedText& text) {
    AttributedText alone(text);
    alone.removeAllAttachments();
    std::string quoted;
    for (Cursor in(alone.string()); !in.atEnd();) {
        const auto line = in.takeLine();
        if (line == "-- ") break;
        const auto content = line.substr(0, line.find_last_not_of(" \t\r") + 1);
        quoted += content.empty() || content.starts_with('>') ? ">" : "> ";
        quoted.append(content).append("\n");
    }
    while (quoted.ends_with("\n>\n")) quoted.resize(quoted.size() - 2);
    return quoted;
}

}  // namespace lorvale
