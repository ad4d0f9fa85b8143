#pragma once
#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>

#include "lorvale/imap.h"
#include "lorvale/platform/run_loop.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {

/// The user of a server of the tests, who is offline without a port.
struct ImapUser : IMAPStoreAccount {
    std::string path() const override { return "/"; }
    std::string displayName() const override { return "test"; }
    std::optional<std::string> hostname() const override { return "127.0.0.1"; }
    std::optional<std::string> username() const override { return user; }
    std::optional<std::string> password(bool) override { return "secret"; }
    IMAPCachePolicy cachePolicy() const override { return policy; }
    bool isOffline() const override { return port == 0; }
    void prepareConnection(IMAPConnection& connection) const override {
        connection.setPort(port);
        connection.setTimeout(patience);
    }
    std::string user = "anna";
    std::uint16_t port = 0;
    IMAPCachePolicy policy = IMAPCachePolicy::allMessages;
    std::chrono::seconds patience{20};
};

/// The user's inbox with its mirror at that place.
inline std::shared_ptr<IMAPStore> openInbox(const std::string& place, const std::shared_ptr<ImapUser>& user) {
    std::filesystem::create_directories(place);
    if (!std::filesystem::exists(place + "/Info.plist"))
        writeFile(place + "/Info.plist",
                  "<plist><dict><key>IMAPMailboxPath</key><string>INBOX</string></dict></plist>");
    return IMAPStore::initWithPath(place, true, false, user);
}

/// Waits for what is under way and for what that has begun.
inline void settle(IMAPStore& store) {
    store.waitUntilSynchronized();
    RunLoop::current()->runFor(std::chrono::milliseconds(5));
    store.waitUntilSynchronized();
}

}  // namespace lorvale::testing
