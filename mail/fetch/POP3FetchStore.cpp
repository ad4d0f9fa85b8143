#include "lorvale/fetch/pop3_fetch_store.h"

#include <utility>

#include "base/files/FileLock.h"
#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/store/mail_account.h"
#include "lorvale/values/format.h"
#include "mail/fetch/POP3BackgroundFetch.h"
#include "mail/fetch/SpoolFile.h"

namespace lorvale {

namespace {

constexpr std::string_view kSpoolName = "POPSpoolFile", kLockName = ".pop_fetch_lock";

}  // namespace

POP3FetchOptions::~POP3FetchOptions() = default;

bool POP3FetchOptions::showProgressPanel() const {
    return true;
}

bool POP3FetchOptions::deleteMessagesOnServer() const {
    return false;
}

bool POP3FetchOptions::onlyFetchUnseenMessages() const {
    return true;
}

std::uint16_t POP3FetchOptions::fetchPort() const {
    return 0;
}

POP3Security POP3FetchOptions::fetchSecurity() const {
    return POP3Security::none;
}

TLSSettings POP3FetchOptions::tlsSettings() const {
    return {};
}

POP3FetchStore::POP3FetchStore() : _progressor(std::make_shared<Progressor>()) {
    _progressor->setName("POP3ProgressPanel");
}

POP3FetchStore::~POP3FetchStore() {
    POP3FetchStore::close();
}

std::shared_ptr<POP3FetchStore> POP3FetchStore::initWithPath(std::string_view path, bool create, bool readOnly,
                                                             const std::shared_ptr<MailAccount>& account) {
    return openStore<POP3FetchStore>(path, create, readOnly, account);
}

bool POP3FetchStore::openAtPath(std::string_view path, bool create, bool readOnly,
                                const std::shared_ptr<MailAccount>& account) {
    if (path.empty()) return failOpening(OpeningFailure::Reason::emptyPath, "An empty path names no account");
    _directory = standardizePath(path);
    const auto spool = stringByAppendingPathComponent(_directory, kSpoolName);
    return SpoolFetchStore::openAtPath(spool, create, readOnly, account);
}

void POP3FetchStore::close() {
    if (isClosed()) return;
    cancelFetch();
    _thread.join();
    SpoolFetchStore::close();
    endFetch();
}

std::string POP3FetchStore::className() const {
    return "POP3FetchStore";
}

void POP3FetchStore::makeDirectory() const {
    // Nobody else reads mail.  The numbers 700 and 600 were once given as they stand, in which the owner could
    // not either.
    if (!FileSystem::current().isDirectory(_directory) && !makeDirectories(_directory, 0700))
        throw POP3Exception(formatText(
            LVLocalizedString("POP spool directory doesn't exist and couldn't be created at path: %@",
                              "The reason of an exception"),
            _directory));
}

bool POP3FetchStore::performFetch() {
    if (isFetching() || isClosed() || isReadOnly()) return false;
    const auto owner = account();
    const POP3FetchOptions usual;
    const auto own = std::dynamic_pointer_cast<const POP3FetchOptions>(owner);
    const auto& options = own != nullptr ? *own : usual;
    makeDirectory();
    POP3BackgroundFetch::Request request;
    request.host = owner != nullptr ? owner->hostname().value_or("") : "";
    request.user = owner != nullptr ? owner->username().value_or("") : "";
    if (request.host.empty() || request.user.empty()) return false;
    const auto password = owner->password(/*mayAsk=*/true);
    if (!password) return false;
    // Whoever was asked has had time for another fetch.
    if (isFetching() || isClosed()) return false;
    auto lock = std::make_unique<FileLock>(stringByAppendingPathComponent(_directory, kLockName));
    if (!lock->failure()) log("%@", lock->failure().text());
    if (!lock->isHeld()) return false;
    request.password = *password;
    request.port = options.fetchPort();
    request.security = options.fetchSecurity();
    request.tls = options.tlsSettings();
    request.spoolPath = spoolPath();
    request.seenPath = stringByAppendingPathComponent(_directory, kSeenMessagesName);
    request.deletedPath = stringByAppendingPathComponent(_directory, kDeletedMessagesName);
    request.showsPanel = showProgressPanel = options.showProgressPanel();
    request.onlyUnseen = options.onlyFetchUnseenMessages();
    request.deletesOnServer = options.deleteMessagesOnServer();
    _fetchLock = std::move(lock);
    _failures.clear();
    forgetLastRouting();
    _messagesFetched = 0;
    _wasCancelled = false;
    startThread(std::make_shared<POP3BackgroundFetch>(
        std::static_pointer_cast<POP3FetchStore>(shared_from_this()), std::move(request)));
    return true;
}

void POP3FetchStore::startThread(std::shared_ptr<POP3BackgroundFetch> fetch) {
    fetchingInBackground = true;
    _fetch = fetch;
    try {
        _thread = Thread("POP3 fetch", [fetch](const std::stop_token&) { fetch->run(); });
    } catch (const GenericException& exception) {
        endFetch();
        throw POP3Exception(exception.reason());
    }
}

void POP3FetchStore::cancelFetch() {
    if (_fetch == nullptr) return;
    _progressor->cancel();
    _fetch->cancel();
}

void POP3FetchStore::beginningBackgroundFetch() {
    if (!showProgressPanel || _fetch == nullptr || _fetch->wasCancelled()) return;
    // What the thread shows already comes again with its next step.
    _progressor->reset();
    _progressor->setTitle(LVLocalizedString("Fetching POP mail", "The title of a panel"),
                          LVLocalizedString("Preparing to fetch mail...", "The message of a panel"));
    _progressor->setButtonEnabled(true);
    _progressor->setShowDetail(true);
    _progressor->showPanel();
    _fetch->panelIsShown();
}

void POP3FetchStore::finishedBackgroundFetch() {
    if (_fetch != nullptr) _wasCancelled = _fetch->wasCancelled();
    if (!isClosed()) {
        // Also mail that a killed fetch has left.
        if (const auto repaired = SpoolFile::repair(spoolPath()); !repaired) log("%@", repaired.text());
        runLoggingExceptions("Routing fetched mail", [this] { SpoolFetchStore::performFetch(); });
    }
    if (showProgressPanel) _progressor->hidePanel();
    fetchingInBackground = false;
    if (!isBusy()) endFetch();
}

void POP3FetchStore::routingFinished() {
    SpoolFetchStore::routingFinished();
    if (!fetchingInBackground) endFetch();
}

/// Another fetch may begin.
void POP3FetchStore::endFetch() {
    fetchingInBackground = false;
    _fetch.reset();
    _fetchLock.reset();
}

void POP3FetchStore::backgroundFetchFailed(std::string_view text) {
    _failures.emplace_back(text);
    userAgentOrAbsent().alertUserWithMessage(
        text, LVLocalizedString("Error while fetching in background", "The title of an alert"));
}

}  // namespace lorvale
