#include "lorvale/platform/inter_thread.h"

#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/thread.h"
#include "lorvale/values/format.h"

namespace lorvale {

namespace {

using Kind = InterThreadMessage::Kind;

std::string nameOf(const std::shared_ptr<RunLoop>& thread) {
    if (thread == nullptr) return "the calling one";
    return thread == RunLoop::main() ? "the main thread"
                                     : formatText("%#x", reinterpret_cast<std::uintptr_t>(thread.get()));
}

std::string failureText(const InterThreadMessage& message, const std::string& thread, const std::string& why) {
    if (message.kind == Kind::notification)
        return formatText("can't post the notification `%@' in the thread `%@' - %@.", message.name, thread,
                          why);
    const auto object = formatText("%#x", reinterpret_cast<std::uintptr_t>(message.receiver.get()));
    return formatText("can't perform the selector `%s' on the object `%@' in the thread `%@' - %@.",
                      message.name, object, thread, why);
}

}  // namespace

void prepareToReceiveInterThreadMessages() {
    [[maybe_unused]] const auto loop = RunLoop::current();
}

void sendInterThreadMessage(InterThreadMessage message, std::shared_ptr<RunLoop> inThread) {
    const auto thread = nameOf(inThread);
    try {
        if (inThread == nullptr) inThread = RunLoop::current();
    } catch (const GenericException& exception) {
        throw InvalidArgumentException(failureText(message, thread, exception.reason()));
    }
    // Shared: a std::function wants to be copied, and a message is not copied on its way.
    const auto sent = std::make_shared<const InterThreadMessage>(std::move(message));
    if (inThread->perform([sent] { ThreadNotificationCenter::handleMessage(*sent); }) == 0)
        debugLog("The thread to which %@ was sent has ended", sent->name);
}

void postNotification(Notification notification, std::shared_ptr<RunLoop> inThread) {
    InterThreadMessage message;
    message.name = notification.name;
    message.notification = std::move(notification);
    sendInterThreadMessage(std::move(message), std::move(inThread));
}

void postNotificationName(std::string_view name, std::shared_ptr<const void> object,
                          std::shared_ptr<RunLoop> inThread) {
    postNotificationName(name, std::move(object), {}, std::move(inThread));
}

void postNotificationName(std::string_view name, std::shared_ptr<const void> object,
                          Notification::UserInfo userInfo, std::shared_ptr<RunLoop> inThread) {
    postNotification({std::string(name), std::move(object), std::move(userInfo)}, std::move(inThread));
}

void ThreadNotificationCenter::handleMessage(const InterThreadMessage& message) {
    switch (message.kind) {
        case Kind::notification:
            NotificationCenter::defaultCenter().postNotification(message.notification);
            break;
        case Kind::perform:
        case Kind::performWithObject:
        case Kind::performWithTwoObjects:
            if (message.operation) message.operation(message);
            break;
    }
}

void MainThreadObject::postNotificationName(std::shared_ptr<const std::string> name,
                                            std::shared_ptr<const void> object) {
    if (name != nullptr) NotificationCenter::defaultCenter().postNotification(*name, std::move(object));
}

}  // namespace lorvale
