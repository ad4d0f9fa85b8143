#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/fetch/pop3_connection.h"
#include "lorvale/fetch/spool_fetch_store.h"
#include "lorvale/platform/progressor.h"
#include "lorvale/platform/thread.h"

namespace lorvale {

class FileLock;
class POP3BackgroundFetch;

/// What a fetch asks of its account beside host, user and password: an account that is one of these, too, says
/// how it is to be done.  Asked in the main thread.
class LORVALE_EXPORT POP3FetchOptions {
public:
    virtual ~POP3FetchOptions();
    virtual bool showProgressPanel() const;        ///< true here
    virtual bool deleteMessagesOnServer() const;   ///< false here
    virtual bool onlyFetchUnseenMessages() const;  ///< true here
    virtual std::uint16_t fetchPort() const;       ///< 0 here: that of the service
    virtual POP3Security fetchSecurity() const;    ///< none here
    virtual TLSSettings tlsSettings() const;       ///< the system's authorities here
};

/// Fetches the mail of a POP3 account: a thread writes what the server has for us to the file "POPSpoolFile" in
/// the account's directory; then the main thread routes it from there as a SpoolFetchStore does.
/// ".pop_messages_seen" beside it remembers what has been fetched.
///
/// A message is forgotten by the server, or remembered here, only when it is in the spool and on disk.  A fetch
/// that ends early leaves what it has in the spool, to be routed, and the server and the memory as they were:
/// mail may then come twice, and never not at all.  One fetch at a time works in a directory, whatever process
/// it is in.
///
/// Belongs to the main thread, whose run loop and user agent it needs.
class LORVALE_EXPORT POP3FetchStore : public SpoolFetchStore {
public:
    /// `path` is the account's directory.
    static std::shared_ptr<POP3FetchStore> initWithPath(std::string_view path, bool create, bool readOnly,
                                                        const std::shared_ptr<MailAccount>& account);

    /// For openStore(); use initWithPath().
    POP3FetchStore();
    ~POP3FetchStore() override;
    /// Ends a fetch, and waits for its thread.
    void close() override;
    std::string className() const override;

    /// Begins to fetch.  False when a fetch is under way, here or in another process, or the account has no
    /// host, user or password; the account may ask for that.  Throws POP3Exception when the directory cannot be
    /// made.
    bool performFetch() override;
    /// From performFetch() until everything is routed.
    bool isFetching() const { return fetchingInBackground || isBusy(); }
    /// As if the button of the panel had been pressed; also ends a wait for the server.
    void cancelFetch();
    /// What went wrong in the last fetch, as the user was told it.
    const std::vector<std::string>& failures() const { return _failures; }
    /// How many messages the last fetch has got from the server so far.  Any thread.
    std::size_t messagesFetched() const { return _messagesFetched; }
    bool wasCancelled() const { return _wasCancelled; }  ///< the last fetch
    const std::shared_ptr<Progressor>& progressor() const { return _progressor; }

protected:
    bool openAtPath(std::string_view path, bool create, bool readOnly,
                    const std::shared_ptr<MailAccount>& account) override;
    void routingFinished() override;

    // The steps of a fetch in the main thread.
    virtual void beginningBackgroundFetch();
    virtual void finishedBackgroundFetch();
    virtual void backgroundFetchFailed(std::string_view text);

private:
    friend class POP3BackgroundFetch;
    void makeDirectory() const;
    void startThread(std::shared_ptr<POP3BackgroundFetch> fetch);
    void endFetch();

    std::string _directory;
    bool fetchingInBackground = false, showProgressPanel = false, _wasCancelled = false;
    const std::shared_ptr<Progressor> _progressor;
    std::vector<std::string> _failures;
    std::atomic<std::size_t> _messagesFetched = 0;
    std::unique_ptr<FileLock> _fetchLock;         // while a fetch is under way
    std::shared_ptr<POP3BackgroundFetch> _fetch;  // likewise
    Thread _thread;                               // last: joined before the rest goes
};

}  // namespace lorvale
