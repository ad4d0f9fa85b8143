#include "FetchSource.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "Output.h"
#include "lorvale/account.h"
#include "lorvale/defaults.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/tls.h"
#include "lorvale/values/text.h"

namespace mailhost {

FetchSource::~FetchSource() = default;

namespace {

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
            _failures.emplace_back(failure.what());
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
    PopSource(const std::string& directory, std::shared_ptr<lorvale::MailAccount> account)
        : _account(std::move(account)),
          _store(lorvale::POP3FetchStore::initWithPath(directory, true, false, _account)) {
        if (_store == nullptr) throw Failure(name() + ": cannot be fetched from");
    }
    ~PopSource() override { _store->close(); }
    std::string name() const override {
        return _account->username().value_or("") + "@" + _account->hostname().value_or("");
    }
    void start() override {
        _failure.clear();
        try {
            if (_store->performFetch()) return;
            _failure = "no password, or another fetch is under way";
        } catch (const std::exception& failure) {
            _failure = failure.what();
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
    const std::shared_ptr<lorvale::MailAccount> _account;
    const std::shared_ptr<lorvale::POP3FetchStore> _store;
    std::string _failure;
};

std::string firstLine(std::FILE* file) {
    std::string line;
    for (int c = std::fgetc(file); c != EOF && c != '\n'; c = std::fgetc(file)) line += static_cast<char>(c);
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

std::string passwordFromDescriptor(std::uint64_t descriptor) {
    const int own = descriptor < 1'000'000 ? ::dup(static_cast<int>(descriptor)) : -1;
    std::FILE* const file = own >= 0 ? ::fdopen(own, "r") : nullptr;
    if (file == nullptr) {
        if (own >= 0) ::close(own);
        throw Failure("--password-fd " + std::to_string(descriptor) + ": cannot be read");
    }
    auto password = firstLine(file);
    std::fclose(file);
    return password;
}

std::string passwordFromCommand(const std::string& command) {
    std::FILE* const pipe = ::popen(command.c_str(), "re");
    if (pipe == nullptr) throw Failure("--password-command: cannot be run");
    auto password = firstLine(pipe);
    while (std::fgetc(pipe) != EOF) continue;
    const int status = ::pclose(pipe);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw Failure("--password-command: the command failed");
    return password;
}

/// An account of the command line.
class OptionAccount : public lorvale::MailAccount, public lorvale::POP3FetchOptions {
public:
    explicit OptionAccount(const Arguments& arguments) {
        const auto place = *arguments.value(kPop);
        const auto colon = place.rfind(':');
        const bool hasPort = colon != std::string::npos && place.find(':') == colon;
        setHostname(place.substr(0, hasPort ? colon : place.size()));
        if (hasPort) _port = portOf(place.substr(colon + 1));
        setUsername(arguments.value(kUser).value_or(lorvale::loginName()));
        if (const auto descriptor = arguments.value(kPasswordDescriptor)) {
            _password = passwordFromDescriptor(*descriptor);
        } else if (const auto command = arguments.value(kPasswordCommand)) {
            _password = passwordFromCommand(*command);
        }
        const auto security = arguments.value(kSecurity).value_or("none");
        if (security == "tls") _security = lorvale::POP3Security::tls;
        if (security == "starttls") _security = lorvale::POP3Security::startTLS;
        _tls.authorities = arguments.value(kAuthorities).value_or("");
        _deletes = arguments.has(kDelete);
        _fetchesAll = arguments.has(kAll);
    }

    std::optional<std::string> password(bool mayAsk) override {
        return _password ? _password : MailAccount::password(mayAsk);
    }
    bool deleteMessagesOnServer() const override { return _deletes; }
    bool onlyFetchUnseenMessages() const override { return !_fetchesAll; }
    std::uint16_t fetchPort() const override { return _port; }
    lorvale::POP3Security fetchSecurity() const override { return _security; }
    lorvale::TLSSettings tlsSettings() const override { return _tls; }

private:
    static std::uint16_t portOf(const std::string& text) {
        std::uint16_t port = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
        if (error != std::errc() || end != text.data() + text.size() || port == 0)
            throw UsageError("--pop takes HOST or HOST:PORT");
        return port;
    }

    std::optional<std::string> _password;
    std::uint16_t _port = 0;
    lorvale::POP3Security _security = lorvale::POP3Security::none;
    lorvale::TLSSettings _tls;
    bool _deletes = false, _fetchesAll = false;
};

/// A folder of its own for each server and user, below the one for POP mail.
std::string stateFolder(const Arguments& arguments, const lorvale::MailAccount& account) {
    if (const auto folder = arguments.value(kState)) return lorvale::standardizePath(*folder);
    auto name = account.username().value_or("") + "@" + account.hostname().value_or("");
    std::ranges::replace(name, '/', '_');
    return lorvale::Defaults::sharedInstance().popSpoolDirectory() + '/' + name;
}

/// Null for an account that has nothing to be fetched.
std::unique_ptr<FetchSource> sourceOf(const std::shared_ptr<lorvale::MailAccount>& account) {
    if (const auto local = std::dynamic_pointer_cast<lorvale::LocalAccount>(account)) {
        const auto folder = local->incomingSpoolDirectory();
        if (!folder) return nullptr;
        return std::make_unique<SpoolSource>(*folder + '/' + lorvale::loginName(), account);
    }
    if (std::dynamic_pointer_cast<lorvale::POP3FetchOptions>(account) == nullptr) return nullptr;
    return std::make_unique<PopSource>(account->path(), account);
}

bool isNamed(const lorvale::MailAccount& account, const std::string& name) {
    return lorvale::equalIgnoringCase(account.displayName(), name) ||
           lorvale::equalIgnoringCase(account.hostname().value_or(""), name);
}

}  // namespace

FetchSources fetchSources(const Arguments& arguments, const std::vector<std::string>& accountNames) {
    FetchSources sources;
    for (const auto& spool : arguments.values(kSpool))
        sources.push_back(std::make_unique<SpoolSource>(spool, nullptr));
    if (arguments.has(kPop)) {
        const auto account = std::make_shared<OptionAccount>(arguments);
        const auto folder = stateFolder(arguments, *account);
        sources.push_back(std::make_unique<PopSource>(folder, account));
    }
    if (!sources.empty() && accountNames.empty()) return sources;
    auto accounts = lorvale::MailAccount::mailAccounts();
    for (const auto& name : accountNames) {
        const auto found =
            std::ranges::find_if(accounts, [&](const auto& each) { return isNamed(*each, name); });
        if (found == accounts.end()) throw Failure("there is no account \"" + name + "\"");
        auto source = sourceOf(*found);
        if (source == nullptr) throw Failure("nothing is fetched from the account \"" + name + "\"");
        sources.push_back(std::move(source));
    }
    if (!sources.empty()) return sources;
    for (const auto& account : accounts)
        if (auto source = sourceOf(account)) sources.push_back(std::move(source));
    if (sources.empty())
        throw Failure("there is no account to fetch from; name a --spool or a --pop server, or add an account");
    return sources;
}

}  // namespace mailhost
