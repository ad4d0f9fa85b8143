#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "lorvale/export.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/run_loop.h"

namespace lorvale {

// Any thread asks another one to run an operation of an object, or to post a notification, on that thread's run
// loop.  A thread is named by its loop: RunLoop::main(), or what RunLoop::current() gave in it; null means the
// calling thread.  The sender does not wait and gets no result; what is sent to the own thread waits for its
// loop, too.  Receiver and arguments are held by shares on the way.  What is sent to a thread that has ended is
// dropped, with its shares, in the sender.  An exception that leaves an operation is logged.
//
// Any thread may call all of this.  InvalidArgumentException, with the operation, the object and the thread in
// its reason, when the calling thread has no loop and the system has no descriptors left to make one.

/// What travels to a thread.
struct LORVALE_EXPORT InterThreadMessage {
    enum class Kind : std::uint32_t {
        notification = 0x200,
        perform = 0x400,
        performWithObject = 0x800,
        performWithTwoObjects = 0x1000,
    };
    using Share = std::shared_ptr<void>;

    Kind kind = Kind::notification;
    std::string name;           ///< of the operation or the notification, for people
    Notification notification;  ///< of Kind::notification
    // Of the others.  Arguments that the kind does not have are null.
    Share receiver, firstArgument, secondArgument;
    std::function<void(const InterThreadMessage&)> operation;
};

/// Makes the calling thread's run loop at once, so that no later call fails for want of descriptors.
LORVALE_EXPORT void prepareToReceiveInterThreadMessages();
LORVALE_EXPORT void sendInterThreadMessage(InterThreadMessage message, std::shared_ptr<RunLoop> inThread);

/// Runs an operation of an object that takes up to two objects, which may be null:
///
///     performSelector("show", &Window::show, window, RunLoop::main());
///     performSelector("show", &Window::show, window, RunLoop::main(), letter);
template <class Object, class Receiver, class... Arguments>
void performSelector(std::string_view name, void (Object::*operation)(std::shared_ptr<Arguments>...),
                     std::shared_ptr<Receiver> object, std::shared_ptr<RunLoop> inThread,
                     std::type_identity_t<std::shared_ptr<Arguments>>... arguments) {
    using Kind = InterThreadMessage::Kind;
    static_assert(sizeof...(Arguments) <= 2, "an operation called from afar takes two objects at most");
    static_assert(std::is_base_of_v<Object, Receiver>);
    InterThreadMessage message;
    message.kind = sizeof...(Arguments) == 0   ? Kind::perform
                   : sizeof...(Arguments) == 1 ? Kind::performWithObject
                                               : Kind::performWithTwoObjects;
    message.name = name;
    message.receiver = std::const_pointer_cast<std::remove_const_t<Receiver>>(object);
    InterThreadMessage::Share* places[] = {&message.firstArgument, &message.secondArgument};
    [[maybe_unused]] auto* place = places;
    ((** place++ = std::const_pointer_cast<std::remove_const_t<Arguments>>(std::move(arguments))), ...);
    message.operation = [operation](const InterThreadMessage& sent) {
        auto* const receiver = static_cast<Receiver*>(sent.receiver.get());
        if (receiver == nullptr) return;  // as a call of nothing is nothing
        if constexpr (sizeof...(Arguments) == 0) {
            (receiver->*operation)();
        } else {
            [[maybe_unused]] const InterThreadMessage::Share* const sentArguments[] = {&sent.firstArgument,
                                                                                       &sent.secondArgument};
            [&]<std::size_t... I>(std::index_sequence<I...>) {
                (receiver->*operation)(std::static_pointer_cast<Arguments>(*sentArguments[I])...);
            }
            (std::index_sequence_for<Arguments...>());
        }
    };
    sendInterThreadMessage(std::move(message), std::move(inThread));
}

/// Posts to the default centre in that thread.
LORVALE_EXPORT void postNotification(Notification notification, std::shared_ptr<RunLoop> inThread);
LORVALE_EXPORT void postNotificationName(std::string_view name, std::shared_ptr<const void> object,
                                         std::shared_ptr<RunLoop> inThread);
LORVALE_EXPORT void postNotificationName(std::string_view name, std::shared_ptr<const void> object,
                                         Notification::UserInfo userInfo, std::shared_ptr<RunLoop> inThread);

/// What a thread's loop does with the messages that reach it.
class LORVALE_EXPORT ThreadNotificationCenter {
public:
    /// In the thread that the message was sent to.  A message of an unknown kind does nothing.
    static void handleMessage(const InterThreadMessage& message);
};

/// A receiver of such calls: does at once, in the thread in which it runs, what it is asked for.
class LORVALE_EXPORT MainThreadObject {
public:
    void postNotificationName(std::shared_ptr<const std::string> name, std::shared_ptr<const void> object);
    template <class Object, class... Arguments>
    void makeObject(const std::shared_ptr<Object>& object,
                    void (Object::*performSelector)(std::shared_ptr<Arguments>...),
                    std::type_identity_t<std::shared_ptr<Arguments>>... withObjects) {
        if (object != nullptr) ((*object).*performSelector)(std::move(withObjects)...);
    }
};

}  // namespace lorvale
