#pragma once
#include <span>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/imap/value.h"

namespace lorvale {

/// Hears what goes on in a connection.  Called by the thread that uses the connection, under none of its
/// locks, but for the two operations that say otherwise.
class LORVALE_EXPORT IMAPConnectionDelegate {
public:
    virtual ~IMAPConnectionDelegate();

    /// Before a command is written.  A password is among its text.
    virtual void logCommandBegin(std::string_view tag, std::string_view command);
    /// A tagged answer has come.
    virtual void logCommandEnd(std::string_view tag);
    /// Each whole response line, with the literals in it.
    virtual void logResponse(std::string_view response);
    /// The state is 0 now: reading or writing failed.
    virtual void connectionWasDisconnected();

    // After a command, from what the server told beside its answer.
    /// As decimal numbers, as the server wrote them.
    virtual void newMessagesHaveArrived(std::string_view recent, std::string_view total);
    /// Each number counts at the moment of its expunge.  In the main thread, later.
    virtual void messagesWereDeleted(std::span<const std::string> numbers);
    /// In the main thread, later.
    virtual void receivedFlags(const IMAPValue& flags, std::string_view forMessage);
};

}  // namespace lorvale
