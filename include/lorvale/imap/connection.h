#pragma once
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/imap/delegate.h"
#include "lorvale/imap/fetched.h"
#include "lorvale/imap/search.h"
#include "lorvale/imap/structure.h"
#include "lorvale/imap/value.h"
#include "lorvale/message/headers.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/platform/tls.h"
#include "lorvale/values/data.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

class IMAPEngine;
class KTSocket;

/// A client of an IMAP server over one connection.  Each operation sends a command and waits for its answer;
/// what the server tells beside it goes to the delegate when the command is done.
///
/// In the classic dialect each command has the exact bytes that servers have always had from this library
/// (RFC 2060), and answers are looked at as it has always looked at them: texts go out as they are, a name with
/// a blank in double quotes.  In the standard dialect (RFC 3501) texts and names are quoted or sent as literals
/// by what they hold, names are in UTF-8 here and in UTF-7 on the wire, and answers may come in any order.
/// docs/imap.md tells the differences.
///
/// No failure of the connection leaves this class as an exception: the state is 0 then, and commands answer as
/// if the server had refused them.  Waits for ever unless setTimeout() says otherwise.
///
/// One thread at a time: a caller that shares a connection holds a lock of its own over a whole exchange.  The
/// exceptions are connectionState(), interrupt() and stopIdling(), which any thread may call.
class LORVALE_EXPORT IMAPConnection {
public:
    enum State : std::int32_t {
        notConnected = 0,
        connected = 1,
        loggedIn = 2,
        mailboxSelected = 3,
        loggedOut = 4
    };
    /// What a response line says.
    enum Result : int { other = 0, ok = 1, no = 2, bad = 3, preauth = 4, bye = 5, continuation = 6 };
    enum class Security : std::uint8_t {
        none,
        startTLS,  ///< by the command STARTTLS, behind the greeting
        tls,       ///< from the first byte on; such servers have a port of their own, 993 as a rule
    };
    using Numbers = std::vector<std::uint32_t>;
    using Untagged = std::map<std::string, std::vector<Data>, std::less<>>;

    [[nodiscard]] static std::shared_ptr<IMAPConnection> imapConnection(MailDialect dialect = mailDialect());
    explicit IMAPConnection(MailDialect dialect);
    ~IMAPConnection();
    IMAPConnection(const IMAPConnection&) = delete;
    IMAPConnection& operator=(const IMAPConnection&) = delete;

    MailDialect dialect() const;

    // The connection.

    /// Connects to the service "imap4", or where the system knows none to port(), and answers the text of the
    /// greeting; nullopt when there is no name, no port, no server or no greeting.
    std::optional<std::string> connectToServer(const std::string& hostname);
    /// The same over a connection that something else has made.
    std::optional<std::string> connectOverSocket(std::unique_ptr<KTSocket> socket, const std::string& hostname);
    /// Drops the connection without a word, and forgets what was learnt of the server.
    void disconnect();
    /// Ends whatever waits for the server, which then counts as gone.
    void interrupt();
    State connectionState() const;
    std::string hostname() const;
    std::int32_t port() const;
    void setPort(std::int32_t port);  ///< 143 at first
    std::shared_ptr<IMAPConnectionDelegate> delegate() const;
    /// Not kept alive.
    void setDelegate(std::weak_ptr<IMAPConnectionDelegate> delegate);
    /// How long one wait for the server may last; 0, as at first: for ever.
    void setTimeout(std::chrono::milliseconds timeout);
    /// From the next connectToServer() on.  A server that does not secure what shall be secure is left at once;
    /// nothing goes to it in the clear.
    void setSecurity(Security security, TLSSettings settings = {});
    /// Most bytes of one response with its literals, and of all that wait to be looked at.  A server that goes
    /// beyond counts as gone.
    void setLimits(std::size_t responseBytes, std::size_t waitingBytes);

    /// What the server told people when it refused the last command; empty where it took it, or has gone.
    std::string refusal() const;

    // The engine, for commands that stand not below.

    std::uint32_t nextCommandNumber();
    /// Writes a command, its arguments as they are, and answers its tag.
    std::uint32_t sendCommand(std::string_view command, std::span<const std::string> withArguments = {});
    /// Reads one response.
    Result readLine();
    static Result resultCodeFromString(std::string_view word);
    /// Reads until the command is answered, and before that in the classic dialect until a line says BAD, in
    /// both until the server asks to go on.
    Result resultCodeForCommandNumber(std::uint32_t tag);
    /// What the server told beside its answers and nobody has taken: by the word, or the number of a message.
    Untagged untaggedResponses() const;
    /// Hands what is left of it to the delegate.
    void didFinishCommand(std::string_view command);

    // Commands in any state.

    /// Asked for once, but again after something that changes them.
    std::vector<std::string> capabilities();
    bool hasCapability(std::string_view name);  ///< in any case of letters
    void noop();
    /// The server's farewell; nullopt when it gave none.
    std::optional<std::string> logout();

    // Logging in.

    bool login(std::string_view user, std::string_view password, std::string* errorString = nullptr);
    /// The same by AUTHENTICATE PLAIN (RFC 4616), for what no quotes can hold.
    bool authenticatePlain(std::string_view user, std::string_view password,
                           std::string* errorString = nullptr);

    // Mailboxes.

    /// The mailboxes as a tree of dictionaries by name, each with those of the level below under
    /// "IMAPMailboxChildren"; nullopt when no mailbox came.
    std::optional<PropertyList> list(std::string_view reference, std::string_view mailbox);
    std::string separatorChar();  ///< empty for a server without one
    /// Item to value, as texts; nullopt when the server refuses.
    std::optional<PropertyList> status(std::string_view forMailbox, std::span<const std::string_view> args);
    std::optional<PropertyList> selectMailbox(std::string_view name, std::string* errorMessage = nullptr);
    std::optional<PropertyList> examineMailbox(std::string_view name, std::string* errorMessage = nullptr);
    std::optional<std::string> selectedMailbox() const;
    bool createMailbox(std::string_view name);
    bool deleteMailbox(std::string_view name);
    bool renameMailbox(std::string_view name, std::string_view toMailbox);

    // Messages of the selected mailbox, by number: 1 for the first.  In the standard dialect a caller may
    // choose that all numbers, given and answered, are UIDs, which stay a message's own whatever others
    // expunge.

    void setNumbersAreUIDs(bool uids);

    /// The server's reason when it refused with one.
    std::optional<std::string> expunge();
    void close();
    /// The words of the answer; nullopt when none came.  `keys` go out as they are, `charset` plays no role in
    /// the classic dialect.
    std::optional<std::vector<std::string>> search(std::string_view keys, std::string_view charset = {});
    void storeFlag(std::string_view flag, bool state, const Numbers& forMessageNumbers);
    /// Of several commands, as a long set needs in the standard dialect, `places` has what they all told.
    bool copyMessageNumbers(const Numbers& numbers, std::string_view toMailboxNamed,
                            IMAPPlaces* places = nullptr);
    /// The data have CRLF at the ends of their lines.
    bool appendData(std::string_view data, std::string_view toMailboxNamed,
                    const std::optional<std::vector<std::string>>& flags = std::nullopt,
                    IMAPPlaces* places = nullptr);

    // What is fetched comes in the order of the numbers, less those of which the server told nothing: a result
    // can be shorter.  Nullopt for no numbers, and when the server refuses.

    template <class Value>
    using Fetched = std::optional<std::vector<Value>>;
    /// Makes a value of the texts that came for one message; nullopt passes it over.
    template <class Value>
    using Parser = std::function<std::optional<Value>(std::span<const Data> texts)>;

    Fetched<IMAPValue> fetchFlags(const Numbers& forMessageNumbers);
    Fetched<std::string> fetchSizes(const Numbers& forMessageNumbers);
    Fetched<std::string> fetchUIDs(const Numbers& forMessageNumbers);
    /// "date", "subject" and "from"; none where no envelope came.  In the classic dialect the subject is as the
    /// server sent it, words of RFC 2047 included.
    Fetched<CachedHeaders> fetchEnvelopes(const Numbers& forMessageNumbers);
    Fetched<IMAPValue> fetchBodyStructures(const Numbers& forMessageNumbers);
    struct CacheInfo {
        std::uint32_t size = 0;
        CachedHeaders envelope;
    };
    /// Sizes and the three headers of a listing in one command.
    Fetched<CacheInfo> fetchMessageCacheInfo(const Numbers& forMessageNumbers);
    /// BODY[section], or BODY.PEEK[section] when the messages shall not count as read.
    Fetched<Data> fetchSection(std::string_view section, const Numbers& forMessageNumbers, bool setSeenFlag,
                               const Parser<Data>& parser);
    /// Whole messages with newlines at the ends of their lines.
    Fetched<std::string> fetchRawData(const Numbers& forMessageNumbers, bool setSeenFlag);

    // What the classic dialect does not know.  In that dialect none of this is sent, and it answers as if the
    // server had refused.

    /// Hands over what the server tells of each message as it comes and in the order in which it comes, so that
    /// one answer at a time is in memory.  `items` go out as they are: "BODY.PEEK[]", "(UID FLAGS)".  With
    /// `changedSince` only messages count whose MODSEQ is higher (CONDSTORE).  `take` must not use the
    /// connection; what it throws comes out, and the connection is dropped before.
    using TakeFetched = std::function<void(const IMAPFetched& message)>;
    bool fetchEach(const IMAPMessageSet& messages, std::string_view items, const TakeFetched& take,
                   std::optional<std::uint64_t> changedSince = std::nullopt);
    Fetched<IMAPBodyPart> fetchParts(const Numbers& forMessageNumbers);

    enum class FlagChange : std::uint8_t { add, remove, replace };
    /// With `unchangedSince` (CONDSTORE) a message that was changed since then keeps its flags, and is among
    /// the `refused`.  False when the server refuses them all.
    bool changeFlags(FlagChange change, std::span<const std::string_view> flags, const Numbers& forMessages,
                     std::optional<std::uint64_t> unchangedSince = std::nullopt, Numbers* refused = nullptr);
    /// Where the server cannot move (RFC 6851) by a copy, a mark, and an expunge of just these where UIDPLUS
    /// and the numbers, being UIDs, allow it; else they stay as marked.  True when they are there, and marked
    /// or gone here.
    bool moveMessageNumbers(const Numbers& numbers, std::string_view toMailboxNamed,
                            IMAPPlaces* places = nullptr);
    /// Only these of the messages that are marked as deleted.  False without UIDPLUS, and for numbers that are
    /// no UIDs.
    bool expungeUIDs(const Numbers& uids);

    /// The numbers of the messages for which all keys hold, ascending; nullopt when the server refuses, as it
    /// does when it does not know the charset of a text.  By ESEARCH (RFC 4731) where the server has it.
    std::optional<Numbers> searchNumbers(const IMAPSearchKeys& keys);

    enum class IdleEnd : std::uint8_t {
        news,     ///< the server has told of a change; the delegate knows it by now
        timeout,  ///< nothing has come
        stopped,  ///< by stopIdling()
        refused,  ///< the server does not do it, or no longer
    };
    /// Waits until the server tells of a change in the selected mailbox (RFC 2177), for `atMost` at most and in
    /// no case longer than 28 minutes: after 29 a server may hang up.  setTimeout() does not end this wait.
    IdleEnd idle(std::chrono::milliseconds atMost = std::chrono::minutes(28));
    /// Ends idle(), the present one or else the next.  May be called by any thread.
    void stopIdling();

private:
    // Of the standard dialect.  What is not taken goes to the delegate like all that nobody asked for.
    using TryTake = std::function<bool(std::uint32_t number, const IMAPFetched& message, const Data& text)>;
    template <class Value>
    using ValueOf = std::function<std::optional<Value>(const IMAPFetched& message, const Data& text)>;
    bool receiveFetched(const IMAPMessageSet& messages, std::string_view items, std::string_view modifier,
                        const TryTake& take);
    template <class Value>
    Fetched<Value> fetchValues(const Numbers& numbers, std::string_view item, const ValueOf<Value>& valueOf);
    Fetched<IMAPValue> fetchItem(const Numbers& numbers, std::string_view item);
    Fetched<std::string> fetchText(const Numbers& numbers, std::string_view item);
    bool isKnownToHave(std::string_view capability) const;
    void learnManner();
    void acceptUTF8();
    IdleEnd idleUntil(std::chrono::steady_clock::time_point end, std::uint32_t tag);
    bool copyOrMove(std::string_view command, const Numbers& numbers, std::string_view toMailboxNamed,
                    IMAPPlaces* places);
    void logRefusedCopy(std::string_view answer) const;
    template <class Value>
    Fetched<Value> _processFetchCommand(const Numbers& numbers, std::string_view item,
                                        const Parser<Value>& processResults);
    template <class Value>
    void takeFetched(const Numbers& numbers, const Parser<Value>& processResults, std::vector<Value>& found);
    std::shared_ptr<KTSocket> connectedSocket(const std::string& hostname) const;
    std::optional<std::string> readGreeting();
    bool startSecurity(const std::string& hostname);
    bool finishLogin(std::uint32_t tag, std::string_view command, std::string* errorString);
    void learnCapabilities(const std::optional<std::string>& answer);
    bool commandOnMailboxes(std::string_view command, std::initializer_list<std::string_view> names);
    std::optional<PropertyList> openMailbox(std::string_view command, std::string_view name,
                                            std::string* errorMessage);
    PropertyList takeSelectData(const std::optional<std::string>& answer);
    /// A command as its numbers are meant.
    std::string numbered(std::string_view command) const;

    const std::unique_ptr<IMAPEngine> _engine;
    std::string _hostname;
    std::int32_t _port = 143;
    std::chrono::milliseconds _timeout{0};
    Security _security = Security::none;
    TLSSettings _tlsSettings;
    bool _numbersAreUIDs = false;
    std::atomic<bool> _isIdlingToStop = false;
    std::optional<std::string> _separatorChar, _selectedMailbox;
    std::optional<std::vector<std::string>> _capabilities;
};

}  // namespace lorvale
