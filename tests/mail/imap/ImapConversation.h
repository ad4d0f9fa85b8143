#pragma once
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "lorvale/imap.h"
#include "tests/support/MemoryTransport.h"

namespace lorvale::testing {

/// A connection whose server has said everything beforehand.
class ImapConversation {
public:
    ImapConversation(MailDialect dialect, std::string_view server, std::size_t piece = 1 << 20)
        : ImapConversation(dialect, inPieces(server, piece)) {}
    ImapConversation(MailDialect dialect, std::deque<std::string> pieces)
        : connection(IMAPConnection::imapConnection(dialect)) {
        auto transport = std::make_unique<MemoryTransport>(std::move(pieces), _log, 1 << 20);
        greeting = connection->connectOverSocket(std::make_unique<KTSocket>(std::move(transport)), "here");
    }
    ~ImapConversation() { connection->disconnect(); }
    ImapConversation(const ImapConversation&) = delete;
    ImapConversation& operator=(const ImapConversation&) = delete;

    /// What the client has sent since the last call.
    std::string sent() { return std::exchange(_log.written, {}); }

private:
    MemoryTransport::Log _log;  // outlives the connection's socket

public:
    const std::shared_ptr<IMAPConnection> connection;
    std::optional<std::string> greeting;
};

}  // namespace lorvale::testing
