#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "lorvale/export.h"
#include "lorvale/platform/notification.h"

namespace lorvale {

class MessageStore;

/// An account that wants to look for new mail from time to time.
class LORVALE_EXPORT TimedFetchObject {
public:
    virtual ~TimedFetchObject();
    /// `automatically`: the clock asks, not the user, so that an account that the user fetches by hand stays
    /// quiet.  True when a fetch was started.
    virtual bool doFetchNow(bool automatically) = 0;
};

/// The host's object, through which everything passes that needs a person or the main thread.  Held
/// process-wide, not owned, may be null; the answers given here are those of a host that is not there.  Any
/// thread may call any operation, so a host with windows passes the calls on to its own thread.
class LORVALE_EXPORT UserAgent {
public:
    virtual ~UserAgent();

    /// A line on what goes on in a store (null: in none); an empty text takes the line away.
    virtual void displayStatus(std::string_view status, MessageStore* forStore);
    virtual void alertUserWithMessage(std::string_view message, std::string_view title);
    /// True for yes.  Nobody there: no.
    [[nodiscard]] virtual bool queryUserForYesNoWithMessage(std::string_view message, std::string_view title,
                                                            std::string_view yesTitle,
                                                            std::string_view noTitle);
    /// nullopt when the user refuses, or nobody is there.  `remember`, when not null, is set to whether the
    /// password shall be kept.
    [[nodiscard]] virtual std::optional<std::string> queryUserForPasswordWithMessage(std::string_view message,
                                                                                     bool* remember);

    /// Runs a call in the main thread, later; answers at once.  Without a host: on the main run loop.
    virtual void performInMainThread(std::function<void()> call);
    /// Posts to the default centre in the main thread.
    virtual void postNotificationNameInMainThread(std::string_view name, std::shared_ptr<const void> object,
                                                  Notification::UserInfo userInfo);
    void postNotificationNameInMainThread(std::string_view name, std::shared_ptr<const void> object) {
        postNotificationNameInMainThread(name, std::move(object), {});
    }

    /// Shows a store; `quietly`: without bringing it to the front.
    virtual void openStore(const std::shared_ptr<MessageStore>& store, bool quietly);
    /// The store is about to go: shut what shows it.
    virtual void closeStore(const std::shared_ptr<MessageStore>& store);

    /// The object is not owned, and unregisters before it goes.
    virtual void registerObjectForTimedFetch(TimedFetchObject& object);
    virtual void unregisterObjectForTimedFetch(TimedFetchObject& object);
};

/// Null at first.  The host keeps the object until it has set another or null and its threads are done.
[[nodiscard]] LORVALE_EXPORT UserAgent* currentUserAgent();
LORVALE_EXPORT void setCurrentUserAgent(UserAgent* agent);

/// The current agent, or one with the answers of an absent host: for callers that have nothing else to do when
/// there is none.
[[nodiscard]] LORVALE_EXPORT UserAgent& userAgentOrAbsent();

}  // namespace lorvale
