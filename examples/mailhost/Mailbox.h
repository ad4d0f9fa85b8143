#pragma once
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Output.h"
#include "lorvale/message.h"
#include "lorvale/store.h"
#include "lorvale/values/date.h"

namespace mailhost {

inline constexpr auto kMailbox = mailboxWord("MAILBOX", "the path of a mailbox, or ACCOUNT/NAME");
inline constexpr auto kNumbers = Typed<std::uint64_t>{{.name = "N",
                                                       .placeholder = {},
                                                       .help = "the number of a message",
                                                       .takes = Takes::number,
                                                       .repeats = true}};
/// Those of kNumbers, each once, ascending.
std::vector<std::uint64_t> givenNumbers(const Arguments& arguments);
inline constexpr auto kDirectoryMailbox =
    mailboxWord("MAILBOX", "the path of a directory mailbox, or ACCOUNT/NAME");

/// Says on standard error that so many messages of a mailbox could not be read, and gives the exit status.
int tellUnreadable(const std::string& path, std::size_t messages);

/// An open mailbox of any kind, closed with this object.
class Mailbox {
public:
    enum class Access {
        read,   ///< no lock is taken and nothing is written
        change  ///< the mailbox is locked
    };

    /// Throws Failure with the reason, also for a file that is no mailbox, and for one to be changed that
    /// somebody else has locked.
    explicit Mailbox(const std::string& path, Access access = Access::read);
    ~Mailbox();
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    lorvale::MessageStore& store() const { return *_openStore; }
    const std::string& path() const { return _place; }
    std::size_t count() const { return _openStore->allMessages().size(); }
    /// 1 is the first.  Throws Failure for a number that no message has.
    std::shared_ptr<lorvale::Message> message(std::uint64_t number) const;
    lorvale::MessageList messages(const std::vector<std::uint64_t>& numbers) const;

    int tellUnreadable(std::size_t messages) const { return mailhost::tellUnreadable(_place, messages); }

private:
    const std::string _place;  // as given
    std::shared_ptr<lorvale::MessageStore> _openStore;
};

/// A directory mailbox opened to be changed, under its lock.  Closed with this object, which writes what has
/// changed.
class ChangingMailbox {
public:
    enum class IfMissing { fail, make };
    /// Throws Failure with the reason; also for a flat mailbox, which keeps no status, and a locked one.
    explicit ChangingMailbox(const std::string& path, IfMissing ifMissing = IfMissing::fail);
    ~ChangingMailbox();
    ChangingMailbox(const ChangingMailbox&) = delete;
    ChangingMailbox& operator=(const ChangingMailbox&) = delete;

    lorvale::TarnMbox& store() { return *_store; }
    /// The messages of these numbers, 1 for the first.  Throws Failure for one that no message has.
    lorvale::MessageList messages(const std::vector<std::uint64_t>& numbers) const;

private:
    std::shared_ptr<lorvale::TarnMbox> _store;
};

/// Any file opens as a mailbox; for one with bytes and without messages this throws Failure.
void checkIsMailbox(const std::string& path);

[[noreturn]] void throwUnreadable(const std::string& what);

/// In bytes; 0 for what is no file.
std::uint64_t sizeOfFile(const std::string& path);

/// "message 12".
std::string nameOfMessage(std::size_t number);

/// Gives back what was loaded of a message, so that a walk over a large mailbox needs little memory.
void forget(lorvale::Message& message);

/// "2004-01-05 18:22" in the local time zone; "-" for no date.
std::string dateForPeople(const std::optional<lorvale::Date>& date);

}  // namespace mailhost
