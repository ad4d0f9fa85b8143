#include "Mailbox.h"

#include <unistd.h>
#include <algorithm>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "Accounts.h"
#include "ConsoleAgent.h"
#include "ServerMailbox.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/store/check.h"

namespace mailhost {

namespace {

/// The library's sentence; where no class of stores wants the path, what stands there is told.
std::string whyNotOpened(const std::string& path, const std::string& file) {
    const auto& failure = lorvale::MessageStore::openingFailure();
    std::error_code ignored;
    if (failure.reason == lorvale::OpeningFailure::Reason::unreadable &&
        std::filesystem::exists(file + "/mbox", ignored)) {
        return path + ": the table of contents does not match the mail; \"mailhost rebuild\" makes it anew";
    }
    if (failure.reason != lorvale::OpeningFailure::Reason::noClass) return failure.text;
    if (::access(file.c_str(), F_OK) != 0) return path + ": " + std::strerror(errno);
    std::error_code error;
    return path + (std::filesystem::is_directory(file, error) ? ": a folder, not a mailbox" : ": no mailbox");
}

}  // namespace

std::vector<std::uint64_t> givenNumbers(const Arguments& arguments) {
    auto numbers = arguments.values(kNumbers);
    std::ranges::sort(numbers);
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

Mailbox::Mailbox(const std::string& path, Access access) : _place(path) {
    if (const auto place = placeOnServer(path)) {
        const bool looks = access == Access::read;
        const auto store = openOnServer(*place, looks ? ServerAccess::look : ServerAccess::change);
        _openStore = store;
        if (!looks && store->isConnected() && store->isReadOnly()) throw Failure(path + ": may only be read");
        return;
    }
    const auto file = pathOfMailbox(path);
    workOn(path, sizeOfFile(file), [&] {
        _openStore =
            lorvale::MessageStore::storeForPath(file, /*create=*/false, /*readOnly=*/access == Access::read);
    });
    if (_openStore == nullptr) throw Failure(whyNotOpened(path, file));
    if (access == Access::change && _openStore->isReadOnly()) throw Failure(path + ": is locked");
    if (count() == 0) checkIsMailbox(path);
}

Mailbox::~Mailbox() {
    if (_openStore != nullptr) _openStore->close();
}

ChangingMailbox::ChangingMailbox(const std::string& path, IfMissing ifMissing) {
    const auto place = pathOfMailbox(path);
    std::error_code error;
    const bool isThere = std::filesystem::exists(place, error);
    if (isThere && !std::filesystem::is_directory(place, error))
        throw Failure(path +
                      ": a flat mailbox, which keeps no status; \"mailhost import\" makes a directory "
                      "mailbox of it");
    if (!isThere && ifMissing == IfMissing::make && !place.ends_with(".mbox"))
        throw Failure(path + ": the name of a directory mailbox ends in \".mbox\"");
    std::shared_ptr<lorvale::MessageStore> opened;
    workOn(path, 0, [&] {
        opened = lorvale::MessageStore::storeForPath(place, ifMissing == IfMissing::make, /*readOnly=*/false);
    });
    if (opened == nullptr) throw Failure(whyNotOpened(path, place));
    _store = std::dynamic_pointer_cast<lorvale::TarnMbox>(opened);
    if (_store == nullptr) throw Failure(path + ": no directory mailbox");
    if (_store->haveLock()) return;
    // A mailbox that is open in this program already, or in another one.
    _store = nullptr;
    throw Failure(path + ": the mailbox is in use");
}

ChangingMailbox::~ChangingMailbox() {
    if (_store != nullptr) _store->close();
}

lorvale::MessageList ChangingMailbox::messages(const std::vector<std::uint64_t>& numbers) const {
    const auto all = _store->allMessages();
    std::vector<std::shared_ptr<lorvale::Message>> wanted;
    for (const auto number : numbers) {
        if (number == 0 || number > all.size()) {
            throw Failure("there is no message " + std::to_string(number) + "; the mailbox holds " +
                          std::to_string(all.size()));
        }
        wanted.push_back(all[number - 1]);
    }
    return wanted;
}

std::shared_ptr<lorvale::Message> Mailbox::message(std::uint64_t number) const {
    const auto& all = _openStore->allMessages();
    if (number == 0 || number > all.size()) {
        throw Failure("there is no message " + std::to_string(number) + "; the mailbox holds " +
                      std::to_string(all.size()));
    }
    return all[number - 1];
}

lorvale::MessageList Mailbox::messages(const std::vector<std::uint64_t>& numbers) const {
    std::vector<std::shared_ptr<lorvale::Message>> wanted;
    wanted.reserve(numbers.size());
    for (const auto number : numbers) wanted.push_back(message(number));
    return wanted;
}

int tellUnreadable(const std::string& path, std::size_t messages) {
    if (messages == 0) return 0;
    say("mailhost: " + path + ": " + groupedNumber(messages) + (messages == 1 ? " message" : " messages") +
        " cannot be read any more: another program has changed the mailbox");
    return 1;
}

void checkIsMailbox(const std::string& path) {
    const auto file = pathOfMailbox(path);
    if (sizeOfFile(file) == 0) return;
    for (const auto& finding : lorvale::checkMailbox(file).findings) {
        const bool aboutMailbox =
            finding.message == 0 && finding.severity == lorvale::MailboxFinding::Severity::error;
        if (aboutMailbox) throw Failure(path + ": not a mailbox: " + finding.text);
    }
}

std::uint64_t sizeOfFile(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return error ? 0 : size;
}

void throwUnreadable(const std::string& what) {
    throw Failure(what + " cannot be read any more: another program has changed the mailbox");
}

std::string nameOfMessage(std::size_t number) {
    return "message " + std::to_string(number);
}

void forget(lorvale::Message& message) {
    // Of a message on a server the list is all that is known without asking again.
    if (dynamic_cast<lorvale::IMAPMessage*>(&message) != nullptr) {
        message.flushCachedData();
        return;
    }
    message.setHeaders(nullptr);
    message.setMessageBody(nullptr);
    message.setMessageFlags(nullptr);
}

std::string dateForPeople(const std::optional<lorvale::Date>& date) {
    return date ? date->inLocalZone().descriptionWithCalendarFormat("%Y-%m-%d %H:%M") : "-";
}

}  // namespace mailhost
