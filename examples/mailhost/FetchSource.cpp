#include "FetchSource.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "Interrupts.h"
#include "Output.h"
#include "PasswordSource.h"
#include "ServerMailbox.h"
#include "lorvale/account.h"
#include "lorvale/defaults.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/text.h"

namespace mailhost {

FetchSource::~FetchSource() = default;

namespace {

using lorvale::POPAccount;

/// What people are told: not the name by which programs know a failure.
std::string reasonOf(const std::exception& failure) {
    const auto* const named = dynamic_cast<const lorvale::NamedException*>(&failure);
    return named != nullptr ? named->reason() : failure.what();
}

/// A flat file, to be emptied.
class SpoolSource : public FetchSource {
public:
    SpoolSource(std::string path, const std::shared_ptr<lorvale::MailAccount>& account)
        : _path(lorvale::standardizePath(path)),
          _store(lorvale::SpoolFetchStore::initWithPath(_path, true, false, account)) {
        if (_store == nullptr) throw Failure(_path + ": cannot be fetched from");
    }
    ~SpoolSource() override { _store->close(); }
    std::string name() const override { return _path; }
    void start() override {
        _failures.clear();
        std::error_code error;
        _hasFetched = std::filesystem::exists(_path, error);
        if (!_hasFetched) return;  // no mail
        try {
            if (!_store->doFetch()) _failures.emplace_back("cannot be read, or another program has locked it");
        } catch (const std::exception& failure) {
            _failures.push_back(reasonOf(failure));
        }
        _hasFetched = _failures.empty();
    }
    bool isUnderWay() const override { return _store->isBusy(); }
    void cancel() override {}  // it is all on this machine, and done in a moment
    Outcome outcome() const override {
        if (!_hasFetched) return {0, 0, 0, _failures};
        return {0, _store->messagesRouted(), _store->messagesToRoute() - _store->messagesRouted(), _failures};
    }

private:
    const std::string _path;
    const std::shared_ptr<lorvale::SpoolFetchStore> _store;
    bool _hasFetched = false;
    std::vector<std::string> _failures;
};

class PopSource : public FetchSource {
public:
    explicit PopSource(std::shared_ptr<POPAccount> account)
        : _account(std::move(account)), _store(_account->fetcher()) {
        if (_store == nullptr) throw Failure(name() + ": cannot be fetched from");
    }
    std::string name() const override {
        return _account->username().value_or("") + "@" + _account->hostname().value_or("");
    }
    void start() override {
        _failure.clear();
        try {
            if (_store->performFetch()) return;
            _failure = "no password, or another fetch is under way";
        } catch (const std::exception& failure) {
            _failure = reasonOf(failure);
        }
    }
    bool isUnderWay() const override { return _store->isFetching(); }
    void cancel() override { _store->cancelFetch(); }
    Outcome outcome() const override {
        if (!_failure.empty()) return {0, 0, 0, {_failure}};
        auto failures = _store->failures();
        if (_store->wasCancelled()) failures.emplace_back("cancelled");
        return {_store->messagesFetched(), _store->messagesRouted(),
                _store->messagesToRoute() - _store->messagesRouted(), std::move(failures)};
    }

private:
    const std::shared_ptr<POPAccount> _account;
    const std::shared_ptr<lorvale::POP3FetchStore> _store;
    std::string _failure;
};

/// A mailbox on a server keeps its mail: what is new there is counted, and listed from now on.
class ImapSource : public FetchSource {
public:
    explicit ImapSource(std::shared_ptr<lorvale::IMAPAccount> account)
        : _account(std::move(account)), _place{_account, "INBOX", _account->path() + "/INBOX"} {}
    ~ImapSource() override { closeStore(); }
    std::string name() const override {
        return _account->username().value_or("") + "@" + _account->hostname().value_or("");
    }
    void start() override {
        // Of mail that stays on its server nothing can be lost here, and servers can be silent for a minute.
        const InterruptsEndAtOnce endAtOnce;
        _outcome = {};
        try {
            look();
        } catch (const std::exception& failure) {
            _outcome.failures.push_back(reasonOf(failure));
        }
        if (!_news || (_store && !_store->isConnected())) return closeStore();
        if (!_store || _store->isWatched() || !_store->watch(std::max(_anew, kLeastWait))) return;
        _observer = lorvale::NotificationCenter::defaultCenter().addObserver(
            [this](const auto&) { _news(); }, lorvale::MessageStoreStructureChanged, _store);
    }
    bool isUnderWay() const override { return false; }
    void cancel() override {}
    Outcome outcome() const override { return _outcome; }
    void watch(std::function<void()> news, std::chrono::seconds anew) override {
        _news = std::move(news);
        _anew = anew;
    }

private:
    static constexpr std::chrono::seconds kLeastWait{30};

    void look() {
        if (!_store) {
            const auto known = lorvale::MessageStore::userInfoForPath(_place.path);
            _next = known ? numberOf((*known)["UIDNEXT"].string()) : 0;
            _store = openOnServer(_place, ServerAccess::change);
        } else if (!_store->isWatched()) {
            _store->doFetchNow(/*automatically=*/false);
        }
        settle(*_store);
        if (!_store->isConnected()) _outcome.failures.emplace_back("no server");
        auto next = _next;
        for (const auto& message : _store->allMessages()) {
            const auto uid = numberOf(message->messageID());
            if (uid >= _next) ++_outcome.routed;
            next = std::max(next, uid + 1);
        }
        _next = next;
    }
    void closeStore() {
        _observer.reset();
        if (_store) _store->close();
        _store.reset();
    }
    static std::uint64_t numberOf(const std::string& text) { return std::strtoull(text.c_str(), nullptr, 10); }

    const std::shared_ptr<lorvale::IMAPAccount> _account;
    const Place _place;
    std::shared_ptr<lorvale::IMAPStore> _store;  // from look to look while it is watched
    std::uint64_t _next = 0;                     // from this UID on a message is new
    std::function<void()> _news;                 // empty: it is not watched
    std::chrono::seconds _anew{};
    lorvale::ObserverToken _observer;
    Outcome _outcome;
};

std::uint16_t portOf(const std::string& text) {
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0)
        throw UsageError("--pop takes HOST or HOST:PORT");
    return port;
}

/// A folder of its own for each server and user, below the one for POP mail.
std::string stateFolder(const Arguments& arguments, const std::string& host, const std::string& user) {
    if (const auto folder = arguments.value(kState)) return lorvale::standardizePath(*folder);
    auto name = user + "@" + host;
    std::ranges::replace(name, '/', '_');
    return lorvale::Defaults::sharedInstance().popSpoolDirectory() + '/' + name;
}

/// An account of the command line, which no registry has.
std::shared_ptr<POPAccount> accountOf(const Arguments& arguments) {
    const auto place = *arguments.value(kPop);
    const auto colon = place.rfind(':');
    const bool hasPort = colon != std::string::npos && place.find(':') == colon;
    const auto host = place.substr(0, hasPort ? colon : place.size());
    const auto user = arguments.value(kUser).value_or(lorvale::loginName());
    std::optional<std::uint16_t> port;
    if (hasPort) port = portOf(place.substr(colon + 1));
    std::optional<std::string> password;
    if (const auto descriptor = arguments.value(kPasswordDescriptor)) {
        password = passwordFromDescriptor(*descriptor);
    } else if (const auto command = arguments.value(kPasswordCommand)) {
        password = passwordFromCommand(*command);
    }
    auto account = POPAccount::accountWithPath(stateFolder(arguments, host, user));
    account->setHostname(host);
    account->setUsername(user);
    account->setPort(port);
    account->setPassword(password);
    const auto word = std::ranges::find(kSecurities, arguments.value(kSecurity).value_or("none"));
    account->setConnectionSecurity(static_cast<lorvale::ConnectionSecurity>(word - kSecurities.begin()));
    account->setCertificateAuthorities(arguments.value(kAuthorities));
    account->setDeleteMessagesOnServer(arguments.has(kDelete));
    account->setOnlyFetchUnseenMessages(!arguments.has(kAll));
    return account;
}

/// Null for an account that has nothing to be fetched.
std::unique_ptr<FetchSource> sourceOf(const std::shared_ptr<lorvale::MailAccount>& account) {
    if (const auto local = std::dynamic_pointer_cast<lorvale::LocalAccount>(account)) {
        const auto folder = local->incomingSpoolDirectory();
        if (!folder) return nullptr;
        return std::make_unique<SpoolSource>(*folder + '/' + lorvale::loginName(), account);
    }
    if (auto onServer = std::dynamic_pointer_cast<lorvale::IMAPAccount>(account))
        return std::make_unique<ImapSource>(std::move(onServer));
    auto pop = std::dynamic_pointer_cast<POPAccount>(account);
    return pop != nullptr ? std::make_unique<PopSource>(std::move(pop)) : nullptr;
}

bool isNamed(const lorvale::MailAccount& account, const std::string& name) {
    return lorvale::equalIgnoringCase(nameOf(account), name) ||
           lorvale::equalIgnoringCase(account.hostname().value_or(""), name);
}

}  // namespace

FetchSources fetchSources(const Arguments& arguments, const std::vector<std::string>& accountNames,
                          bool byClock) {
    FetchSources sources;
    for (const auto& spool : arguments.values(kSpool))
        sources.push_back(std::make_unique<SpoolSource>(spool, nullptr));
    if (arguments.has(kPop)) sources.push_back(std::make_unique<PopSource>(accountOf(arguments)));
    if (!sources.empty() && accountNames.empty()) return sources;
    auto accounts = registeredAccounts();
    for (const auto& name : accountNames) {
        const auto found =
            std::ranges::find_if(accounts, [&](const auto& each) { return isNamed(*each, name); });
        if (found == accounts.end()) throw Failure("there is no account \"" + name + "\"");
        auto source = sourceOf(*found);
        if (source == nullptr) throw Failure("nothing is fetched from the account \"" + name + "\"");
        sources.push_back(std::move(source));
    }
    if (!sources.empty()) return sources;
    for (const auto& account : accounts) {
        if (byClock && !account->shouldAutoFetch()) continue;
        if (auto source = sourceOf(account)) sources.push_back(std::move(source));
    }
    if (sources.empty())
        throw Failure("there is no account to fetch from; name a --spool or a --pop server, or add an account");
    return sources;
}

}  // namespace mailhost
