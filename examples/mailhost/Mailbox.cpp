#include "Mailbox.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "lorvale/platform/paths.h"

namespace mailhost {

namespace {

/// Asked before the library is, which answers null whatever the reason.
void checkReadable(const std::string& path) {
    if (::access(path.c_str(), R_OK) != 0) throw Failure(path + ": " + std::strerror(errno));
}

}  // namespace

Mailbox::Mailbox(const std::string& path) : _path(lorvale::standardizePath(path)) {
    checkReadable(_path);
    _store = lorvale::MessageStore::storeForPath(_path, /*create=*/false, /*readOnly=*/true);
    if (_store != nullptr) return;
    std::error_code ignored;
    if (std::filesystem::is_directory(_path, ignored)) throw Failure(path + ": a folder, not a mailbox");
    throw Failure(path + ": cannot be opened as a mailbox");
}

Mailbox::~Mailbox() {
    if (_store != nullptr) _store->close();
}

std::shared_ptr<lorvale::Message> Mailbox::message(std::size_t number) const {
    const auto& all = _store->allMessages();
    if (number == 0 || number > all.size()) {
        throw Failure("there is no message " + std::to_string(number) + "; the mailbox holds " +
                      std::to_string(all.size()));
    }
    return all[number - 1];
}

bool Mailbox::looksLikeNoMailbox() const {
    std::error_code error;
    const auto size = std::filesystem::file_size(_path, error);
    return count() == 0 && !error && size > 0;
}

JsonObject Summary::json() const {
    JsonObject object;
    object.add("number", number).add("id", id).add("from", from).add("subject", subject);
    if (date) {
        object.add("date", date->iso8601());
    } else {
        object.addNull("date");
    }
    object.add("size", size).add("read", read).add("deleted", deleted);
    return object;
}

Summary summaryOf(lorvale::Message& message, std::size_t number) {
    const auto headers = message.headers();
    const auto flags = message.messageFlags();
    Summary summary;
    summary.number = number;
    summary.id = headers->messageID();
    summary.from = headers->sender();
    summary.subject = headers->subject();
    summary.date = headers->knownDateReceived();
    summary.size = message.messageSize();
    summary.read = flags->isRead();
    summary.deleted = flags->isDeleted();
    return summary;
}

std::string dateForPeople(const std::optional<lorvale::Date>& date) {
    return date ? date->inLocalZone().descriptionWithCalendarFormat("%Y-%m-%d %H:%M") : "-";
}

}  // namespace mailhost
