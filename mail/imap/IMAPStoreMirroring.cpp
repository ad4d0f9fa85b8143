/// Fetching the texts that the mirror of a mailbox is missing.
#include <algorithm>
#include <set>
#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/imap/store.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/run_loop.h"
#include "mail/imap/Digits.h"
#include "mail/imap/FetchParsing.h"
#include "mail/imap/MirrorFiles.h"
#include "mail/imap/ServerLock.h"
#include "mail/imap/StoreNames.h"

namespace lorvale {

namespace {

/// How much is asked for at once: others who want to talk to the server wait so long.
constexpr std::size_t kMessagesAtOnce = 256;
constexpr std::size_t kBytesAtOnce = 1024 * 1024;

/// How much may be fetched anew when all goes dark, and how long it takes until a text shows: each time takes
/// the disk a moment.
constexpr std::size_t kBytesKeptAtOnce = 16 * 1024 * 1024;
constexpr std::chrono::seconds kLongestWait{2};

}  // namespace

void IMAPStore::cacheMessagesFromServer() {
    if (isClosed()) return;
    const auto folder = pathOf(kMirrorName);
    if (const auto made = makeDirectories(folder, kMirrorFolderMode); !made) {
        log("%@", made.text());
        return;
    }
    const auto* const owner = imapAccount();
    const bool wantsAll = owner == nullptr || owner->cachePolicy() == IMAPCachePolicy::allMessages;
    if (!goesOn() || !_connected || !wantsAll) return;
    Thread::setCurrentPriority(Thread::kBackgroundPriority);
    auto& files = FileSystem::current();
    const auto names = files.namesInFolder(folder).value_or(std::vector<std::string>());
    std::set<std::string, std::less<>> kept(names.begin(), names.end());
    const auto all = allMessages();
    std::vector<std::size_t> missing;  // the newest first
    for (auto i = all.size(); i > 0; --i) {
        const auto& uid = static_cast<IMAPMessage&>(*all[i - 1]).uid();
        if (kept.erase(uid) == 0 && !cacheFileOf(uid).empty()) missing.push_back(i - 1);
    }
    _mirrored = 0;
    _toMirror = missing.size();
    const bool isFilled = isStandard() ? mirrorTogether(all, missing) : mirrorOneByOne(all, missing);
    if (_mirrored > 0) (void)callInMainThread([](IMAPStore& store) { store.updateIndex(); });
    if (!isFilled) return;
    if (kept.empty()) return;
    showStatus("Removing old cache files...");
    for (const auto& name : kept) (void)files.remove(stringByAppendingPathComponent(folder, name));
}

/// False when the server is gone or the store closes.
bool IMAPStore::mirrorOneByOne(const MessageList& all, const std::vector<std::size_t>& places) {
    for (const auto place : places) {
        if (!_connected || !goesOn()) return false;
        showStatus(formatText("Caching message number %d...", place + 1));
        auto& message = static_cast<IMAPMessage&>(*all[place]);
        const auto text = fetchText(message, /*setSeenFlag=*/false);
        if (!text) continue;
        const auto written = writeFileAtomically(cacheFileOf(message.uid()), *text, kMirrorFileMode);
        if (!written) log("%@", written.text());
        ++_mirrored;
    }
    return true;
}

/// Several in one command; one of them at a time is in memory.
bool IMAPStore::mirrorTogether(const MessageList& all, std::span<const std::size_t> places) {
    MirrorFiles files(pathOf(kMirrorName));
    const auto keep = [&] {
        // Under the lock, since another UIDVALIDITY makes worthless what waits.
        const ServerTurn turn(*_lock);
        _mirrored += files.commit();
    };
    auto kept = RunLoop::Clock::now();
    while (!places.empty() && _connected && goesOn()) {
        showStatus(formatText("Caching message number %d...", places.front() + 1));
        places = fetchInto(files, all, places);
        if (files.bytes() < kBytesKeptAtOnce && RunLoop::Clock::now() - kept < kLongestWait) continue;
        keep();
        kept = RunLoop::Clock::now();
    }
    keep();
    return places.empty();
}

/// Gives what is left of the places.  What the server had sent before it went is good.
std::span<const std::size_t> IMAPStore::fetchInto(MirrorFiles& files, const MessageList& all,
                                                  std::span<const std::size_t> places) {
    Numbers uids;
    std::size_t bytes = 0;
    while (!places.empty() && uids.size() < kMessagesAtOnce && bytes < kBytesAtOnce) {
        const auto& message = static_cast<const IMAPMessage&>(*all[places.front()]);
        if (const auto uid = numberIn(message.uid())) uids.push_back(*uid);
        bytes += message.messageSize();
        places = places.subspan(1);
    }
    const ServerTurn turn(*_lock);
    (void)_connection->fetchEach(uids, "BODY.PEEK[]", [&](const IMAPFetched& fetched) {
        const auto uid = fetched.uid();
        const auto text = fetched.section();
        if (uid && text) (void)files.add(std::to_string(*uid), withNewlines(text->view()));
    });
    return places;
}

}  // namespace lorvale
