#include "lorvale/platform/user_agent.h"

#include <atomic>
#include <utility>

#include "lorvale/platform/run_loop.h"

namespace lorvale {

namespace {

std::atomic<UserAgent*> current{nullptr};

}  // namespace

TimedFetchObject::~TimedFetchObject() = default;
UserAgent::~UserAgent() = default;

void UserAgent::displayStatus(std::string_view, MessageStore*) {}

void UserAgent::alertUserWithMessage(std::string_view, std::string_view) {}

bool UserAgent::queryUserForYesNoWithMessage(std::string_view, std::string_view, std::string_view,
                                             std::string_view) {
    return false;
}

std::optional<std::string> UserAgent::queryUserForPasswordWithMessage(std::string_view, bool* remember) {
    if (remember != nullptr) *remember = false;
    return std::nullopt;
}

void UserAgent::performInMainThread(std::function<void()> call) {
    RunLoop::main()->perform(std::move(call));
}

void UserAgent::postNotificationNameInMainThread(std::string_view name, std::shared_ptr<const void> object,
                                                 Notification::UserInfo userInfo) {
    performInMainThread(
        [notification = Notification{std::string(name), std::move(object), std::move(userInfo)}] {
            NotificationCenter::defaultCenter().postNotification(notification);
        });
}

void UserAgent::openStore(const std::shared_ptr<MessageStore>&, bool) {}
void UserAgent::closeStore(const std::shared_ptr<MessageStore>&) {}
void UserAgent::registerObjectForTimedFetch(TimedFetchObject&) {}
void UserAgent::unregisterObjectForTimedFetch(TimedFetchObject&) {}

UserAgent* currentUserAgent() {
    return current;
}

void setCurrentUserAgent(UserAgent* agent) {
    current = agent;
}

UserAgent& userAgentOrAbsent() {
    static UserAgent& absent = *new UserAgent;  // never destroyed: late threads may still ask
    auto* const agent = current.load();
    return agent != nullptr ? *agent : absent;
}

}  // namespace lorvale
