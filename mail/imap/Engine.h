#pragma once
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "lorvale/imap/connection.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/socket.h"
#include "mail/imap/CommandText.h"
#include "mail/imap/ResponseReader.h"

namespace lorvale {

/// Sends commands and sorts what comes back: tagged answers under their tags, all else under its key, until
/// somebody takes it.  Knows no command; the state of the connection is kept here, since a failure of the
/// socket changes it.
///
/// Its lock is held while a line is read or written, never while the delegate is called.  interrupt() and
/// state() may be called by any thread; the rest of an exchange belongs to one.
class IMAPEngine {
public:
    using State = IMAPConnection::State;
    using Result = IMAPConnection::Result;
    using Untagged = IMAPConnection::Untagged;

    /// Gets what came for one message, by its number, and answers whether it took it.  May throw: the
    /// connection is dropped then, as the rest of the answer has nobody to go to.
    using Receiver = std::function<bool(std::string_view number, const Data& text)>;

    explicit IMAPEngine(MailDialect dialect) : _dialect(dialect), _reader(dialect), _manner{dialect} {}

    MailDialect dialect() const { return _dialect; }
    bool isStandard() const { return _dialect == MailDialect::standard; }
    State state() const { return _state; }
    void setState(State state) { _state = state; }
    /// Changes the state unless the connection is gone meanwhile.
    void setStateIfConnected(State state);

    void open(std::shared_ptr<KTSocket> socket);
    /// Puts a layer of security under the conversation; false, and the connection is gone, where that fails.
    bool secure(const std::function<void(KTSocket&)>& start);
    void interrupt();
    /// Drops the socket and all that was read, and starts with the first tag again.
    void disconnect();
    void setTimeout(std::chrono::milliseconds timeout);
    void setLimits(std::size_t responseBytes, std::size_t waitingBytes);

    std::shared_ptr<IMAPConnectionDelegate> delegate() const;
    void setDelegate(std::weak_ptr<IMAPConnectionDelegate> delegate);
    /// How commands are written to this server; the dialect stays.
    void setManner(const CommandManner& manner);
    CommandManner manner() const;

    std::uint32_t nextCommandNumber();
    /// In the standard dialect waits between the pieces until the server asks for the next one; when it answers
    /// instead, the rest is not sent.
    std::uint32_t send(std::string_view word, std::span<const CommandArgument> arguments);
    /// For what follows a continuation request.
    bool write(std::initializer_list<std::string_view> pieces);
    Result readLine();
    Result wait(std::uint32_t tag);

    struct Answer {
        Result result = Result::other;
        std::optional<std::string> text;  ///< behind the status; nullopt without any
        bool isOK() const { return result == Result::ok; }
    };
    /// What a command that was waited for was answered.
    Answer answer(std::uint32_t tag, Result result) const;
    /// Ends a command that was sent: forgets its answer, then didFinishCommand().
    void finish(std::uint32_t tag);
    /// send() and wait(), without an end.
    Answer ask(std::string_view word, std::span<const CommandArgument> arguments);
    /// ask(), then `look` at the answer, then didFinishCommand().
    Answer run(std::string_view word, std::span<const CommandArgument> arguments,
               const std::function<void(const Answer&)>& look = {});
    /// ask(), during which what comes for messages goes to `receiver` first, as it comes.  What it takes beyond
    /// `expected` answers counts as what nobody asked for, so that a server that goes on for ever is left.
    Answer receive(std::string_view word, std::span<const CommandArgument> arguments, std::size_t expected,
                   const Receiver& receiver);
    /// Hands what is left of the untagged data to the delegate.
    void didFinishCommand();
    /// Waits until there is something to read, the end included.  False when nothing has come, or when wake()
    /// was called, now or before.
    bool waitForInput(std::chrono::milliseconds atMost);
    void wake();  ///< may be called by any thread

    Untagged untagged() const;
    /// Takes all texts under a key; none where there are none.
    std::vector<Data> take(std::string_view key);
    /// Takes them all and gives the last one.
    std::optional<Data> takeLast(std::string_view key);
    /// The texts under a key, which stay.
    std::vector<Data> look(std::string_view key) const;
    /// Everything under keys that are numbers, for answers that are told apart by what is in them.
    std::vector<std::pair<std::string, Data>> takeNumbered();
    /// What the last command that has ended was refused with; empty where it was not.
    std::string refusal() const;
    /// How many messages the mailbox has, as the server told last; 0 before.
    std::size_t messageCount() const;
    /// Before another mailbox is opened.
    void forgetMessageCount();
    /// Whether the command was sent and its answer is still to come.
    bool isWaitedFor(std::uint32_t tag) const;

private:
    struct Response;
    Response read(KTSocket& socket, bool isWanted) LORVALE_REQUIRES(_lock);
    Result note(const Response& response) LORVALE_REQUIRES(_lock);
    void keep(std::string_view key, std::string_view text, const Data& whole) LORVALE_REQUIRES(_lock);
    Result receiveOrNote(const Response& response);
    void count(std::size_t bytes) LORVALE_REQUIRES(_lock);
    void lose(std::string_view why);
    bool isOutstanding(std::uint32_t tag) const;
    bool isAnswered(std::uint32_t tag) const;
    void forget(std::uint32_t tag);
    std::shared_ptr<KTSocket> socket() const;
    template <class Write>
    bool writeLocked(Write write);
    bool sendPieces(const CommandText& text, std::uint32_t tag);

    const MailDialect _dialect;
    std::atomic<State> _state = State::notConnected;

    mutable Mutex _socketMutex;  // held for moments only; taken inside _lock, never around it
    std::shared_ptr<KTSocket> _socket LORVALE_GUARDED_BY(_socketMutex);
    std::weak_ptr<IMAPConnectionDelegate> _delegate LORVALE_GUARDED_BY(_socketMutex);
    std::chrono::milliseconds _timeout LORVALE_GUARDED_BY(_socketMutex){0};

    mutable Mutex _lock;
    ResponseReader _reader LORVALE_GUARDED_BY(_lock);
    std::uint32_t _commandNumber LORVALE_GUARDED_BY(_lock) = 0;
    CommandManner _manner LORVALE_GUARDED_BY(_lock);
    std::set<std::string, std::less<>> _outstandingCommands LORVALE_GUARDED_BY(_lock);
    std::map<std::string, Answer, std::less<>> _commandResponses LORVALE_GUARDED_BY(_lock);  // by tag
    std::string _refusal LORVALE_GUARDED_BY(_lock);
    Untagged _untaggedResponses LORVALE_GUARDED_BY(_lock);
    std::size_t _waitingBytes LORVALE_GUARDED_BY(_lock) = 0;  // of these two, roughly
    std::size_t _messageCount LORVALE_GUARDED_BY(_lock) = 0;
    std::size_t _waitingLimit LORVALE_GUARDED_BY(_lock) = ResponseReader::kResponseLimit;

    // Of the command under way; they belong to the thread of the exchange.
    const Receiver* _receiver = nullptr;
    std::size_t _expected = 0;  // answers that are still to come for it
};

}  // namespace lorvale
