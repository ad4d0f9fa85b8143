#include "ServerMailbox.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "ConsoleAgent.h"
#include "Output.h"
#include "Terminal.h"
#include "lorvale/platform/run_loop.h"

namespace mailhost {

namespace {

using lorvale::IMAPAccount;
using lorvale::IMAPStore;

void visit(IMAPAccount& account, const lorvale::AccountItemShare& item,
           const std::function<void(const std::string&)>& call) {
    IMAPAccount::Attributes attributes;
    const auto items = account.mailboxesForItem(item, &attributes);
    for (std::size_t i = 0; i < items.size(); ++i) {
        const bool isFolder =
            i < attributes.size() &&
            std::ranges::find(attributes[i], lorvale::IMAPMailboxAttributeNoSelect) != attributes[i].end();
        if (!isFolder) call(items[i]->path);
        if (account.isItemExpandable(items[i])) visit(account, items[i], call);
    }
}

}  // namespace

std::optional<Place> placeOnServer(const std::string& typed) {
    auto place = placeInAccount(typed);
    return place && serverAccount(*place) ? std::move(place) : std::nullopt;
}

std::shared_ptr<IMAPAccount> serverAccount(const Place& place) {
    return std::dynamic_pointer_cast<IMAPAccount>(place.account);
}

std::shared_ptr<IMAPStore> openOnServer(const Place& place, ServerAccess access) {
    const auto account = serverAccount(place);
    const auto shown = nameOf(*account) + "/" + place.name;
    std::error_code ignored;
    const bool wasKnown = std::filesystem::exists(place.path, ignored);
    auto store = account->storeForItemPath(place.name, access == ServerAccess::look);
    if (!store) throw Failure(shown + ": could not be opened");
    settle(*store);
    if (store->isSynchronized()) return store;
    const bool hasServer = store->isConnected();
    const bool hasList = std::filesystem::exists(place.path + "/CachedData", ignored);
    if (hasList && !hasServer) {
        if (!account->isOffline()) say("mailhost: " + shown + ": no server; this is how it was known");
        return store;
    }
    if (!hasServer && access == ServerAccess::change && wasKnown) return store;
    store->close();
    if (!wasKnown) std::filesystem::remove_all(place.path, ignored);
    throw Failure(shown + (hasServer ? ": the server has no such mailbox, or does not open it"
                                     : ": no server, and nothing is known of the mailbox"));
}

void needServer(const Place& place, const IMAPStore& store) {
    if (!store.isConnected()) throw Failure(nameOf(*place.account) + "/" + place.name + ": needs the server");
}

std::string reasonOf(const lorvale::MessageStore& store) {
    const auto* const onServer = dynamic_cast<const IMAPStore*>(&store);
    if (onServer == nullptr) return {};
    if (!onServer->refusal().empty()) return " (" + onServer->refusal() + ")";
    return onServer->isConnected() ? "" : " (the connection is gone)";
}

void fetchMissing(const Place& place, IMAPStore& store) {
    using lorvale::IMAPCachePolicy;
    using lorvale::RunLoop;
    const auto account = serverAccount(place);
    const auto before = account->cachePolicy();
    account->useCachePolicy(IMAPCachePolicy::allMessages);
    store.fillMirror();
    std::unique_ptr<ProgressBar> bar;
    std::size_t total = 0;
    while (store.isSynchronizing()) {
        RunLoop::main()->runOnce(RunLoop::Clock::now() + std::chrono::milliseconds(50));
        const auto progress = store.mirrorProgress();
        if (progress.total != std::exchange(total, progress.total))
            bar = std::make_unique<ProgressBar>(nameOf(*account) + "/" + place.name, progress.total);
        if (bar) bar->advanceTo(progress.done);
    }
    account->useCachePolicy(before);
    needServer(place, store);
}

void settle(IMAPStore& store) {
    do {
        store.waitUntilSynchronized();
        // What the thread has left for the main loop.
        while (lorvale::RunLoop::main()->dispatch()) continue;
    } while (store.isSynchronizing());
}

void forEachMailbox(IMAPAccount& account, const std::function<void(const std::string&)>& call) {
    visit(account, nullptr, call);
}

}  // namespace mailhost
