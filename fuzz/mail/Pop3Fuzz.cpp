// A server that says anything at all: however its bytes are cut, the same entries come of it, and each mark of
// an entry in the spool is one that the connection made.
#include <limits>

#include "fuzz/FuzzTarget.h"
#include "lorvale/fetch.h"
#include "lorvale/platform/socket.h"
#include "tests/support/MemoryTransport.h"

using namespace lorvale;

namespace {

struct Spool : POP3Spool {
    void write(std::string_view entry) override {
        text += entry;
        ++entries;
    }
    std::string text;
    std::size_t entries = 0;
};

Spool talk(std::string_view said, std::size_t pieces, MailDialect dialect) {
    Spool spool;
    testing::MemoryTransport::Log log;
    auto transport = std::make_unique<testing::MemoryTransport>(testing::inPieces(said, pieces), log,
                                                                std::numeric_limits<std::size_t>::max());
    POP3Connection connection(std::make_unique<KTSocket>(std::move(transport)), dialect);
    connection.setLargestMessage(1 << 16);
    try {
        connection.readGreeting();
        if (dialect == MailDialect::standard) connection.negotiate();
        connection.user("anna");
        connection.pass("secret");
        connection.stat();
        auto numbers = connection.list();
        if (numbers.size() > 20) numbers.resize(20);
        connection.availableMessagesUsingUIDL();
        connection.fetchMessages(numbers, spool);
        connection.deleteMessages(numbers);
        connection.quit();
    } catch (const NamedException&) {
        // The end of what it has to say.
    }
    return spool;
}

}  // namespace

LORVALE_FUZZ_TARGET(said) {
    static const bool quiet = (setLogSink([](std::string_view) {}), true);
    if (!quiet || said.empty()) return;
    for (const auto dialect : {MailDialect::classic, MailDialect::standard}) {
        const auto whole = talk(said, said.size(), dialect), cut = talk(said, 3, dialect);
        if (whole.entries != cut.entries) std::abort();
        if (whole.entries == 0) continue;
        if (!whole.text.starts_with("From ") || whole.text.back() != '\n') std::abort();
        std::size_t marks = 1;
        for (std::size_t at = 0; (at = whole.text.find("\nFrom ", at)) != std::string::npos; ++at) ++marks;
        if (marks != whole.entries) std::abort();
    }
}
