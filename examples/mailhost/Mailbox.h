#pragma once
#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Json.h"
#include "lorvale/message.h"
#include "lorvale/store.h"
#include "lorvale/values/date.h"

namespace mailhost {

/// Something that the user has to be told, and a non-zero exit status.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A mailbox opened for reading only: no lock is taken and nothing is written.  Closed with this object.
class Mailbox {
public:
    /// Throws Failure with the reason.
    explicit Mailbox(const std::string& path);
    ~Mailbox();
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    lorvale::MessageStore& store() { return *_store; }
    std::size_t count() const { return _store->allMessages().size(); }
    /// 1 is the first.  Throws Failure for a number that no message has.
    std::shared_ptr<lorvale::Message> message(std::size_t number) const;
    /// A file that is not empty and yet holds no message may not be what its reader takes it for.
    bool looksLikeNoMailbox() const;

private:
    const std::string _path;
    std::shared_ptr<lorvale::MessageStore> _store;
};

/// What a listing tells about one message.
struct Summary {
    std::size_t number = 0;
    std::string id, from, subject;      // as in the message; may hold any bytes
    std::optional<lorvale::Date> date;  // of delivery
    std::size_t size = 0;               // bytes
    bool read = true, deleted = false;

    JsonObject json() const;
};
Summary summaryOf(lorvale::Message& message, std::size_t number);

/// "2004-01-05 18:22" in the local time zone; "-" for no date.
std::string dateForPeople(const std::optional<lorvale::Date>& date);

}  // namespace mailhost
