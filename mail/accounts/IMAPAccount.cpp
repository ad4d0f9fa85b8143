/// An IMAP account's settings, and the connection over which it lists its mailboxes.
#include "lorvale/account/imap_account.h"

#include <array>
#include <exception>
#include <utility>

#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/values/format.h"
#include "mail/accounts/AccountKeys.h"
#include "mail/accounts/OneAtATime.h"
#include "mail/imap/ServerLock.h"

namespace lorvale {

namespace {

using State = IMAPConnection::State;

/// In the order of their values.
constexpr auto kPolicyWords =
    std::to_array<std::string_view>({"CacheAllMessages", "CacheMessagesAsRead", "CacheNoMessages"});

constexpr std::uint16_t kPort = 143, kTLSPort = 993;
constexpr std::chrono::seconds kIdleTime{900}, kTimeout{60}, kFarewellTimeout{2};

OneAtATime::Place connecting;

}  // namespace

IMAPAccount::IMAPAccount() : _lock(std::make_unique<ServerLock>()) {}

IMAPAccount::~IMAPAccount() {
    {
        const MutexLock lock(_stateMutex);
        if (_closing != 0) RunLoop::main()->cancel(_closing);
    }
    closeConnection(_connection);
}

std::shared_ptr<IMAPAccount> IMAPAccount::accountWithPath(std::string_view path) {
    auto account = openAccount<IMAPAccount>(path);
    account->registerForTimedFetch();
    return account;
}

std::string IMAPAccount::className() const {
    return "IMAPAccount";
}

std::string IMAPAccount::displayName() const {
    const auto host = hostname();
    auto name = displayNameOr(
        host ? formatText(LVLocalizedString("IMAP: %@", "The name of an account on a host"), *host)
             : LVLocalizedString("IMAP Account", "The name of an account without a host"));
    const MutexLock lock(_stateMutex);
    if (_stayOffline || (_listing && _listing->connectionState() < State::loggedIn))
        name += LVLocalizedString(" (Offline)", "Behind the name of an account");
    return name;
}

void IMAPAccount::setPath(std::string_view path) {
    {
        const ServerTurn turn(*_lock);
        _mailboxes.clear();
    }
    MailAccount::setPath(path);
}

bool IMAPAccount::compactWhenClosingMailboxes() const {
    return boolForKey(kCompactWhenClosingKey);
}

void IMAPAccount::setCompactWhenClosingMailboxes(bool compact) {
    setBool(compact, kCompactWhenClosingKey);
}

IMAPCachePolicy IMAPAccount::cachePolicy() const {
    if (const auto inUse = _policyInUse.load(); inUse >= 0) return static_cast<IMAPCachePolicy>(inUse);
    const auto word = textForKey(kCachePolicyKey).value_or("");
    for (std::size_t i = 0; i < kPolicyWords.size(); ++i)
        if (word == kPolicyWords[i]) return static_cast<IMAPCachePolicy>(i);
    return IMAPCachePolicy::allMessages;
}

void IMAPAccount::setCachePolicy(IMAPCachePolicy policy) {
    const auto index = static_cast<std::size_t>(policy);
    setText(kPolicyWords[index < kPolicyWords.size() ? index : 0], kCachePolicyKey);
}

void IMAPAccount::useCachePolicy(std::optional<IMAPCachePolicy> policy) {
    _policyInUse = policy ? static_cast<std::int32_t>(*policy) : -1;
}

void IMAPAccount::prepareConnection(IMAPConnection& connection) const {
    using Security = IMAPConnection::Security;
    const auto how = connectionSecurity();
    const auto security = how == ConnectionSecurity::none       ? Security::none
                          : how == ConnectionSecurity::upgraded ? Security::startTLS
                                                                : Security::tls;
    connection.setSecurity(security, {.authorities = certificateAuthorities().value_or("")});
    connection.setPort(port().value_or(security == Security::tls ? kTLSPort : kPort));
    connection.setTimeout(kTimeout);
}

void IMAPAccount::setOffline(bool offline) {
    _stayOffline = offline;
}

std::shared_ptr<IMAPConnection> IMAPAccount::connection() {
    if (_stayOffline) return nullptr;
    const OneAtATime attempt(connecting);
    if (!attempt) return nullptr;
    const ServerTurn turn(*_lock);
    try {
        // One that the server has dropped serves no more; the classic dialect keeps it until its time is over.
        const bool isDead = _connection && _connection->dialect() == MailDialect::standard &&
                            _connection->connectionState() == State::notConnected;
        if (!_connection || isDead) setConnection(connectNow());
        if (_connection) scheduleClosing();
    } catch (const std::exception& exception) {
        log("%@", exception.what());
    }
    return _connection;
}

/// Null when the user gave no password, which leaves the account offline.
std::shared_ptr<IMAPConnection> IMAPAccount::connectNow() {
    auto word = password(/*mayAsk=*/true);
    std::shared_ptr<IMAPConnection> made;
    while (!made || made->connectionState() < State::loggedIn) {
        if (!word) {
            _stayOffline = true;
            return nullptr;
        }
        made = IMAPConnection::imapConnection();
        prepareConnection(*made);
        if (!made->connectToServer(hostname().value_or(""))) {
            // Another password helps no server that is not there; the classic dialect asks for one.
            if (made->dialect() == MailDialect::standard) return nullptr;
            word = promptUserForPassword();
            continue;
        }
        std::string error;
        if (made->connectionState() >= State::loggedIn) break;
        if (made->login(username().value_or(""), *word, &error)) break;
        if (!error.empty())
            userAgentOrAbsent().alertUserWithMessage(errorStringWithMessage(error, {}), "IMAP Message");
        word = promptUserForPassword();
    }
    return made;
}

void IMAPAccount::setConnection(std::shared_ptr<IMAPConnection> connection) {
    _connection = connection;
    const MutexLock lock(_stateMutex);
    _listing = std::move(connection);
}

void IMAPAccount::scheduleClosing() {
    const auto loop = RunLoop::main();
    const MutexLock lock(_stateMutex);
    if (_closing != 0) loop->cancel(_closing);
    auto close = [weak = weak_from_this(), idle = std::weak_ptr(_connection)] {
        const auto self = std::static_pointer_cast<IMAPAccount>(weak.lock());
        if (const auto connection = idle.lock(); self && connection) self->closeConnection(connection);
    };
    _closing = loop->performAfterDelay(std::move(close), kIdleTime);
}

void IMAPAccount::closeConnection(const std::shared_ptr<IMAPConnection>& connection) {
    if (!connection) return;
    const ServerTurn turn(*_lock);
    connection->setTimeout(kFarewellTimeout);
    (void)connection->logout();
    if (connection == _connection) setConnection(nullptr);
}

bool IMAPAccount::doFetchNow(bool automatically) {
    if (automatically && !shouldAutoFetch()) return false;
    const auto place = _storePathForName(kInboxName);
    if (place && MessageStore::currentlyOpenStoreForPath(*place)) return false;
    const auto item = itemNamed(std::string(kInboxName));
    postStatusChanged(item, userInfoForItem(item));
    return false;
}

}  // namespace lorvale
