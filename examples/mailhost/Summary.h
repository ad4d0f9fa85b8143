#pragma once
#include <optional>
#include <string>
#include <vector>

#include "Json.h"
#include "lorvale/message.h"

namespace mailhost {

/// Each address of the first "To:" and the first "Cc:" line, with its name.
/// Of a message on a server that is not mirrored only what its list tells: nothing is fetched for it.
lorvale::HeaderSummary summaryOf(lorvale::Message& message);

std::vector<std::string> recipientsOf(const lorvale::HeaderSummary& summary);

/// What a listing tells about one message.
struct Summary {
    /// What a table shows is at hand without reading all headers of a message; JSON has more.  `listed` is a
    /// row that reads no mail at all, of a store that lists its messages itself: whether they can be read shows
    /// when somebody does.
    enum class Detail { listed, row, json };

    Summary(lorvale::Message& message, std::size_t number, Detail detail);

    std::size_t number = 0;
    std::string id, from, subject;        // as in the message; may hold any bytes
    std::vector<std::string> recipients;  // likewise
    std::optional<lorvale::Date> date;    // of delivery
    std::size_t size = 0;                 // bytes
    bool read = true, deleted = false;
    std::optional<std::size_t> attachments;  // where somebody has counted them
    bool unreadable = false;                 // then there are only number, size and flags

    JsonObject json() const;
};

}  // namespace mailhost
