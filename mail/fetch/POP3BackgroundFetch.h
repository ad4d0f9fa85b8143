#pragma once
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lorvale/fetch/pop3_fetch_store.h"
#include "lorvale/platform/mutex.h"
#include "mail/fetch/SeenMessages.h"

namespace lorvale {

/// One fetch from a POP3 server into a spool file, in a thread of its own.  It reaches its store, which it
/// holds, only in the main thread, but for the panel and the count of messages.
class POP3BackgroundFetch : private POP3ConnectionDelegate {
public:
    struct Request {
        std::string host, user, password;
        std::uint16_t port = 0;
        POP3Security security = POP3Security::none;
        TLSSettings tls = {};
        std::string spoolPath, seenPath, deletedPath;
        bool showsPanel = false, onlyUnseen = true, deletesOnServer = false;
    };
    POP3BackgroundFetch(std::shared_ptr<POP3FetchStore> store, Request request);

    /// All of it, in its thread.
    void run();
    /// Any thread, as the next two.
    void cancel();
    bool wasCancelled() const { return _isCancelled; }
    /// From now on its button counts; before, what it says is about the last fetch.
    void panelIsShown() { _listensToPanel = true; }

private:
    using Numbers = std::vector<std::uint32_t>;

    void connectionReceivedNumberOfBytes(POP3Connection& connection, std::size_t bytes) override;
    void connectionWillRetrieveMessageNumber(POP3Connection& connection, std::uint32_t number,
                                             const POP3Header* header, std::uint64_t size) override;
    void connectionDidRetrieveMessageNumber(POP3Connection& connection, std::uint32_t number) override;

    void converse();
    void connect(POP3Connection& connection);
    void logIn(POP3Connection& connection);
    Numbers availableMessages(POP3Connection& connection);
    void leaveOutSeen(POP3Connection& connection, Numbers& numbers);
    void deleteAgain(POP3Connection& connection, bool headersTell);
    void leaveOutSeenByHeaders(POP3Connection& connection, Numbers& numbers);
    bool retrieve(POP3Connection& connection, const Numbers& numbers);
    void writeSpool(POP3Connection& connection, const Numbers& numbers);
    void keepAndForget(POP3Connection& connection);
    void noteDeleted(POP3Connection& connection);
    void quit(POP3Connection& connection);
    void setProgressPanelMessage(std::string_view message);
    void updatePanel();
    bool cancelled();
    template <class Call>
    void inMainThread(Call call);
    void fail(std::string text);

    std::shared_ptr<POP3FetchStore> _store;
    const std::shared_ptr<Progressor> _progressor;
    const Request _request;
    std::atomic<bool> _isCancelled = false, _listensToPanel = false;
    Mutex _mutex;
    std::shared_ptr<POP3Connection> _connection LORVALE_GUARDED_BY(_mutex);  // to be ended from outside

    // Of the thread.
    bool currentlyFetchingMessage = false;
    double currentMessageProgress = 0, currentMessageSize = 0;  // bytes
    double _sinceDetail = 0;                                    // bytes since the detail line was renewed
    std::size_t messagesToFetch = 0, messagesFetched = 0;
    std::map<std::uint32_t, std::string> messageIDsToFetch;  // from the number to the identifier
    std::optional<SeenMessages> previouslySeenMessages;      // nullopt: not asked for
    Numbers messageNumbersToDelete;
    // Once the server has heard QUIT, it has deleted all that it was ever told to.
    bool _hasNothingElseToDelete = false;
};

}  // namespace lorvale
