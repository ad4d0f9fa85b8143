#pragma once
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lorvale/fetch.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/user_defaults.h"
#include "tests/support/StoreSupport.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {

/// Turns the main loop until that holds; fails the test after a while.
inline void runMainLoopUntil(const std::function<bool()>& holds, int seconds = 20) {
    const auto end = RunLoop::Clock::now() + std::chrono::seconds(seconds);
    while (!holds() && RunLoop::Clock::now() < end) RunLoop::current()->runFor(std::chrono::milliseconds(1));
    EXPECT_TRUE(holds());
}

/// The names of the letters of mboxMessage() in a mailbox of any kind, each with how often it is there whole;
/// opened for reading.
inline std::map<std::string, int> lettersIn(const std::string& path, std::string_view body = "hello\n") {
    std::map<std::string, int> found;
    const auto store = MessageStore::storeForPath(path, false, true);
    if (store == nullptr) return found;
    for (const auto& message : store->allMessages()) {
        const auto subject = message->headers()->subject();
        const auto name = subject.substr(std::min(subject.size(), std::string("about ").size()));
        if (bytesOf(*message) == mboxMessage(name, body)) ++found[name];
    }
    store->close();
    return found;
}

/// While it lives, fetched mail is routed by a function, message by message; null leaves a message where it is.
class RoutingBy {
public:
    using Choice = std::function<std::shared_ptr<MessageStore>(Message&)>;
    explicit RoutingBy(Choice choice, bool separately = true) {
        MessageRouter::registerRouterClass({"RoutingBy", [](const MessageStore&) { return 1.0F; },
                                            [=] { return std::make_unique<Router>(choice, separately); }});
    }
    ~RoutingBy() { MessageRouter::unregisterRouterClass("RoutingBy"); }
    RoutingBy(const RoutingBy&) = delete;
    RoutingBy& operator=(const RoutingBy&) = delete;

private:
    struct Router : MessageRouter {
        Router(Choice c, bool s) : choice(std::move(c)), separately(s) {}
        std::shared_ptr<MessageStore> destinationStoreForMessage(
            const std::shared_ptr<Message>& message) override {
            return choice(*message);
        }
        bool routeMessagesSeparately() const override { return separately; }
        Choice choice;
        bool separately;
    };
};

/// A folder with the user's mail directory in it, named in the defaults.
class FetchFolder : public ::testing::Test {
protected:
    FetchFolder() { UserDefaults::standard().setArgument("MailDir", folder.path().string()); }
    ~FetchFolder() override { UserDefaults::standard().removeArguments(); }
    std::string at(std::string_view name) const { return (folder / name).string(); }

    const TemporaryFolder folder;
    const std::string spool = at("spool"), active = at("Active.mbox");
    LogCapture log;
};

}  // namespace lorvale::testing
