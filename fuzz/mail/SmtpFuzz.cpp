// Whatever a mail server says, and in whatever pieces it comes, a conversation ends: with the same outcome in
// the classic dialect, and never with a text that the server has not asked for in the standard one.
#include "fuzz/FuzzTarget.h"
#include "lorvale/delivery.h"
#include "tests/support/MemoryTransport.h"

using namespace lorvale;

namespace {

struct Outcome {
    std::string said, written;
    friend bool operator==(const Outcome&, const Outcome&) = default;
};

Outcome converse(std::string_view server, std::size_t pieces, MailDialect dialect) {
    testing::MemoryTransport::Log log;
    Outcome outcome;
    try {
        auto transport =
            std::make_unique<testing::MemoryTransport>(testing::inPieces(server, pieces), log, 4096);
        SMTPConnection connection(std::make_unique<KTSocket>(std::move(transport)), {}, dialect);
        connection.beginConversation("x");
        if (dialect == MailDialect::classic) {
            outcome.said += std::to_string(connection.mailFrom("a@x"));
            outcome.said += std::to_string(connection.rcptTo("b@x"));
            outcome.said += std::to_string(connection.startData());
        } else {
            for (const auto& [recipient, reply] : connection.startMail({"a@x", {"b@x", "c@x"}, 100, true}))
                outcome.said += recipient + ' ' + reply + '\n';
            if (outcome.said.find("c@x ") != std::string::npos && outcome.said.starts_with("b@x "))
                return outcome;
            fuzz::require(log.written.find("DATA\r\n") != std::string::npos);
        }
        connection.sendData(server);
        outcome.said += std::to_string(connection.endData()) + std::to_string(connection.quit());
    } catch (const NamedException& exception) {
        outcome.said += exception.what();
    }
    outcome.written = log.written;
    return outcome;
}

}  // namespace

LORVALE_FUZZ_TARGET(server) {
    const auto whole = converse(server, server.size() + 1, MailDialect::classic);
    fuzz::require(converse(server, 1, MailDialect::classic) == whole);
    fuzz::require(converse(server, 7, MailDialect::classic) == whole);
    for (const std::size_t pieces : {std::size_t{1}, std::size_t{7}, server.size() + 1})
        converse(server, pieces, MailDialect::standard);
}
