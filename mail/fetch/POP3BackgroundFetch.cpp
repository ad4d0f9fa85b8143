#include "mail/fetch/POP3BackgroundFetch.h"

#include <algorithm>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/store/mail_account.h"
#include "lorvale/values/format.h"
#include "mail/fetch/SpoolFile.h"

namespace lorvale {

namespace {

constexpr std::string_view kCancelledException = "POP3ConnectionCancelledException";

std::string reasonOf(const std::exception& exception) {
    const auto* const named = dynamic_cast<const NamedException*>(&exception);
    return named != nullptr ? named->reason() : exception.what();
}

bool isCancel(const std::exception& exception) {
    const auto* const named = dynamic_cast<const NamedException*>(&exception);
    return named != nullptr && named->name() == kCancelledException;
}

}  // namespace

POP3BackgroundFetch::POP3BackgroundFetch(std::shared_ptr<POP3FetchStore> store, Request request)
    : _store(std::move(store)), _progressor(_store->progressor()), _request(std::move(request)) {}

template <class Call>
void POP3BackgroundFetch::inMainThread(Call call) {
    userAgentOrAbsent().performInMainThread([store = _store, call] { call(*store); });
}

void POP3BackgroundFetch::run() {
    inMainThread([](POP3FetchStore& store) { store.beginningBackgroundFetch(); });
    try {
        converse();
    } catch (const std::exception& exception) {
        if (!cancelled())
            fail(formatText(
                LVLocalizedString("Background fetch failed with exception: %@", "An alert about a fetch"),
                reasonOf(exception)));
    }
    {
        const MutexLock lock(_mutex);
        _connection.reset();
    }
    // The store goes to the main thread with this, for it must not end here.
    userAgentOrAbsent().performInMainThread(
        [store = std::exchange(_store, nullptr)] { store->finishedBackgroundFetch(); });
}

void POP3BackgroundFetch::cancel() {
    _isCancelled = true;
    const MutexLock lock(_mutex);
    if (_connection != nullptr) _connection->shutdown();
}

bool POP3BackgroundFetch::cancelled() {
    if (_listensToPanel && _progressor->cancelled()) _isCancelled = true;
    return _isCancelled;
}

void POP3BackgroundFetch::fail(std::string text) {
    inMainThread([text = std::move(text)](POP3FetchStore& store) { store.backgroundFetchFailed(text); });
}

void POP3BackgroundFetch::setProgressPanelMessage(std::string_view message) {
    if (_request.showsPanel) _progressor->setMessage(message);
}

void POP3BackgroundFetch::converse() {
    const std::shared_ptr<POP3Connection> connection = POP3Connection::init();
    if (connection == nullptr) throw POP3Exception("The system has no socket left");
    {
        const MutexLock lock(_mutex);
        _connection = connection;
        if (_isCancelled) connection->shutdown();
    }
    connect(*connection);
    logIn(*connection);
    auto numbers = availableMessages(*connection);
    if (!numbers.empty() && _request.onlyUnseen) leaveOutSeen(*connection, numbers);
    const bool isWork = !numbers.empty() || !messageNumbersToDelete.empty();
    if (isWork && !retrieve(*connection, numbers)) return;
    quit(*connection);
    setProgressPanelMessage(LVLocalizedString("Routing messages...", "The message of a panel during a fetch"));
}

void POP3BackgroundFetch::quit(POP3Connection& connection) {
    setProgressPanelMessage(
        LVLocalizedString("Closing connection to server...", "The message of a panel during a fetch"));
    if (connection.quit() != POP3Connection::kOK || !_hasNothingElseToDelete) return;
    auto& files = FileSystem::current();
    if (!files.exists(_request.deletedPath)) return;
    if (const auto removed = files.remove(_request.deletedPath); !removed) log("%@", removed.text());
}

void POP3BackgroundFetch::connect(POP3Connection& connection) {
    setProgressPanelMessage(formatText(
        LVLocalizedString("Connecting to host %@...", "The message of a panel during a fetch"), _request.host));
    if (connection.connectToHost(_request.host, _request.port, _request.security, _request.tls) !=
        POP3Connection::kOK)
        fail(formatText(LVLocalizedString("Couldn't connect to POP host named %@.", "An alert about a fetch"),
                        _request.host));
    // Servers of old know no word for what they offer, and classic mail asks for none.
    if (mailDialect() == MailDialect::standard || _request.security != POP3Security::none)
        connection.negotiate(_request.security, _request.tls);
}

void POP3BackgroundFetch::logIn(POP3Connection& connection) {
    if (cancelled()) return;
    setProgressPanelMessage(formatText(
        LVLocalizedString("Logging in as user %@...", "The message of a panel during a fetch"), _request.user));
    const bool inOneStep = mailDialect() == MailDialect::standard && connection.offers("SASL PLAIN");
    if (!inOneStep && connection.user(_request.user) != POP3Connection::kOK)
        fail(formatText(LVLocalizedString("POP user name %@ unrecognized.", "An alert about a fetch"),
                        _request.user));
    if (cancelled()) return;
    setProgressPanelMessage(LVLocalizedString("Sending password...", "The message of a panel during a fetch"));
    const int answer =
        inOneStep ? connection.authPlain(_request.user, _request.password) : connection.pass(_request.password);
    if (answer == POP3Connection::kOK) return;
    fail(
        LVLocalizedString("The username and password specified in the preferences panel were not accepted by "
                          "the server.",
                          "An alert about a fetch"));
    inMainThread([](POP3FetchStore& store) {
        if (const auto account = store.account()) account->forgetRememberedPassword();
    });
}

POP3BackgroundFetch::Numbers POP3BackgroundFetch::availableMessages(POP3Connection& connection) {
    if (cancelled()) return {};
    setProgressPanelMessage(
        LVLocalizedString("Checking for messages...", "The message of a panel during a fetch"));
    const bool isTold = connection.stat() == POP3Connection::kOK;
    if (connection.messagesAvailable() > 0) return connection.list();
    _hasNothingElseToDelete = isTold;
    return {};
}

void POP3BackgroundFetch::leaveOutSeen(POP3Connection& connection, Numbers& numbers) {
    setProgressPanelMessage(
        LVLocalizedString("Finding unseen messages...", "The message of a panel during a fetch"));
    previouslySeenMessages = readSeenMessages(_request.seenPath);
    const auto identifiers = connection.availableMessagesUsingUIDL();
    if (identifiers) {
        messageIDsToFetch = *identifiers;
        std::erase_if(numbers, [this](std::uint32_t number) {
            const auto identifier = messageIDsToFetch.find(number);
            return identifier != messageIDsToFetch.end() &&
                   previouslySeenMessages->contains(identifier->second);
        });
    } else {
        leaveOutSeenByHeaders(connection, numbers);
    }
    if (_request.deletesOnServer) deleteAgain(connection, /*headersTell=*/!identifiers);
}

/// A server deletes when it hears QUIT.  Where the last fetch did not come to that, it still has what is in no
/// list of ours but that of what was seen, and would keep it for ever.
void POP3BackgroundFetch::deleteAgain(POP3Connection& connection, bool headersTell) {
    _hasNothingElseToDelete = true;
    const auto told = readSeenMessages(_request.deletedPath);
    if (told.empty()) return;
    if (headersTell) {  // down to the first that was seen they are known
        for (const auto number : connection.list()) {
            if (messageIDsToFetch.contains(number)) continue;
            if (const auto header = connection.messageHeaderForMessageNumber(number))
                messageIDsToFetch[number] = header->messageID();
        }
    }
    std::map<std::string_view, int> times;
    for (const auto& [number, identifier] : messageIDsToFetch) ++times[identifier];
    for (const auto& [number, identifier] : messageIDsToFetch) {
        // Of two messages that a server calls the same, one has perhaps not been fetched; and it may have
        // deleted the one, and given the name to another.
        const auto found = told.find(identifier);
        if (times[identifier] == 1 && found != told.end() &&
            found->second == connection.sizeOfMessageNumber(number) &&
            previouslySeenMessages->contains(identifier))
            messageNumbersToDelete.push_back(number);
    }
}

/// Messages arrive in order, so that below one that was seen there are only others that were.
void POP3BackgroundFetch::leaveOutSeenByHeaders(POP3Connection& connection, Numbers& numbers) {
    for (auto place = numbers.end(); place != numbers.begin();) {
        const auto header = connection.messageHeaderForMessageNumber(*--place);
        if (header == nullptr) continue;
        auto identifier = header->messageID();
        if (previouslySeenMessages->contains(identifier)) {
            numbers.erase(numbers.begin(), place + 1);
            return;
        }
        messageIDsToFetch[*place] = std::move(identifier);
    }
}

/// False when it came to no good end, and the connection is of no more use.
bool POP3BackgroundFetch::retrieve(POP3Connection& connection, const Numbers& numbers) {
    setProgressPanelMessage(
        LVLocalizedString("Preparing to retrieve messages...", "The message of a panel during a fetch"));
    connection.setDelegate(this);
    messagesToFetch = numbers.size();
    try {
        if (!numbers.empty()) writeSpool(connection, numbers);
        keepAndForget(connection);
        connection.setDelegate(nullptr);
        return true;
    } catch (const std::exception& exception) {
        connection.setDelegate(nullptr);
        connection.abort();
        if (!isCancel(exception) && !_isCancelled) throw;
        return false;
    }
}

void POP3BackgroundFetch::writeSpool(POP3Connection& connection, const Numbers& numbers) {
    SpoolFile spool(_request.spoolPath);
    const auto count = connection.fetchMessages(numbers, spool);
    // What has come is kept in any case.
    if (count > 0) spool.close();
    if (const auto failure = connection.fetchFailure()) std::rethrow_exception(failure);
}

/// Everything is on disk: now the server may forget, and we remember.
void POP3BackgroundFetch::keepAndForget(POP3Connection& connection) {
    if (_request.deletesOnServer) {
        setProgressPanelMessage(
            LVLocalizedString("Removing messages from server...", "The message of a panel during a fetch"));
        connection.deleteMessages(messageNumbersToDelete);
    }
    if (!previouslySeenMessages) return;
    if (_request.deletesOnServer) noteDeleted(connection);
    if (const auto written = writeSeenMessages(_request.seenPath, *previouslySeenMessages); !written)
        throw POP3Exception(written.text());
}

/// Before anything is noted as seen; see deleteAgain().
void POP3BackgroundFetch::noteDeleted(POP3Connection& connection) {
    SeenMessages deleted;
    for (const auto number : messageNumbersToDelete)
        if (const auto identifier = messageIDsToFetch.find(number); identifier != messageIDsToFetch.end())
            deleted[identifier->second] = connection.sizeOfMessageNumber(number);
    if (deleted.empty()) return;
    if (const auto written = writeSeenMessages(_request.deletedPath, deleted); !written)
        throw POP3Exception(written.text());
}

void POP3BackgroundFetch::connectionWillRetrieveMessageNumber(POP3Connection&, std::uint32_t,
                                                              const POP3Header* header, std::uint64_t size) {
    currentMessageProgress = 0;
    currentMessageSize = static_cast<double>(size);
    currentlyFetchingMessage = true;
    ++messagesFetched;
    if (!_request.showsPanel) return;
    auto subject = header != nullptr ? header->firstTextForKey("subject") : std::string();
    if (subject.empty()) subject = LVLocalizedString("No subject", "Stands for the subject of a message");
    _progressor->setMinValue(0);
    _progressor->setMaxValue(currentMessageSize);
    _progressor->setDoubleValue(0);
    setProgressPanelMessage(
        formatText(LVLocalizedString("Fetching %d of %d: %@", "The message of a panel during a fetch"),
                   messagesFetched, messagesToFetch, subject));
    updatePanel();
}

void POP3BackgroundFetch::updatePanel() {
    _sinceDetail = 0;
    _progressor->setDetailMessage(formatText(
        LVLocalizedString("Received %d of %d bytes", "A line of a panel during a fetch"),
        static_cast<std::uint64_t>(currentMessageProgress), static_cast<std::uint64_t>(currentMessageSize)));
}

void POP3BackgroundFetch::connectionReceivedNumberOfBytes(POP3Connection&, std::size_t bytes) {
    if (!currentlyFetchingMessage) return;
    if (cancelled()) {
        currentlyFetchingMessage = false;
        setProgressPanelMessage(LVLocalizedString("Cancelling...", "The message of a panel during a fetch"));
        throw NamedException(kCancelledException, LVLocalizedString("You have cancelled fetching POP3 mail",
                                                                    "The reason of an exception"));
    }
    currentMessageProgress = std::min(currentMessageProgress + static_cast<double>(bytes), currentMessageSize);
    if (!_request.showsPanel) return;
    _progressor->setDoubleValue(currentMessageProgress);
    _sinceDetail += static_cast<double>(bytes);
    if (_sinceDetail > currentMessageSize * 0.05) updatePanel();
}

void POP3BackgroundFetch::connectionDidRetrieveMessageNumber(POP3Connection&, std::uint32_t number) {
    currentlyFetchingMessage = false;
    if (_request.showsPanel) _progressor->setDoubleValue(currentMessageSize);
    const auto identifier = messageIDsToFetch.find(number);
    if (previouslySeenMessages && identifier != messageIDsToFetch.end())
        (*previouslySeenMessages)[identifier->second] = number;
    messageNumbersToDelete.push_back(number);
    ++_store->_messagesFetched;
}

}  // namespace lorvale
