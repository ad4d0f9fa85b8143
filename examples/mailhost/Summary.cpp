#include "Summary.h"

#include "Mailbox.h"

namespace mailhost {

Summary::Summary(lorvale::Message& message, std::size_t theNumber, Detail detail) : number(theNumber) {
    const auto headers = message.headers();
    const auto flags = message.messageFlags();
    size = message.messageSize();
    read = flags->isRead();
    deleted = flags->isDeleted();
    if (detail == Detail::json) {
        id = message.messageID();
        recipients = headers->recipients();
    }
    from = headers->sender();
    subject = headers->subject();
    date = headers->knownDateReceived();
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
    if (unreadable) object.add("unreadable", true);
    return object;
}

}  // namespace mailhost
