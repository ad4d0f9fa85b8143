#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>

#include "Accounts.h"
#include "Commands.h"
#include "Json.h"
#include "Output.h"
#include "PasswordSource.h"
#include "Table.h"
#include "Terminal.h"
#include "lorvale/defaults.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/user_agent.h"

namespace mailhost {

namespace {

using lorvale::ConnectionSecurity;
using lorvale::IMAPAccount;
using lorvale::LocalAccount;
using lorvale::MailAccount;
using lorvale::POPAccount;

constexpr auto kActions = std::to_array<std::string_view>({"add", "remove", "show", "set"});
constexpr auto kTypes = std::to_array<std::string_view>({"pop", "local", "imap"});
constexpr auto kSecurities = std::to_array<std::string_view>({"none", "starttls", "tls"});
constexpr auto kPolicies = std::to_array<std::string_view>({"all", "read", "none"});
constexpr auto kYesNo = std::to_array<std::string_view>({"yes", "no"});

constexpr auto kAction = Typed<std::string>{{.name = "ACTION",
                                             .placeholder = {},
                                             .help = "what to do; to list them where it is missing",
                                             .takes = Takes::choice,
                                             .choices = kActions,
                                             .isOptional = true}};
constexpr auto kName = Typed<std::string>{{.name = "ACCOUNT",
                                           .placeholder = {},
                                           .help = "the name of an account",
                                           .takes = Takes::text,
                                           .isOptional = true}};
constexpr auto kType = choiceOption("--type", "TYPE", kTypes, "of a new account; pop unless said otherwise");
constexpr auto kNewName = textOption("--name", "NAME", "another name");
constexpr auto kHost = textOption("--host", "HOST", "the server");
constexpr auto kUser = textOption("--user", "USER", "the user's name there");
constexpr auto kPort = numberOption("--port", "N", "the server's port, where it is not the usual one");
constexpr auto kSecurity =
    choiceOption("--security", "HOW", kSecurities, "how the connection is kept secret; of a new account tls");
constexpr auto kAuthorities = textOption(
    "--authorities", "FILE", "certificates of those to trust in place of the system's", Takes::mailbox);
constexpr auto kPath = textOption("--path", "DIR", "the account's folder on this machine", Takes::folder);
constexpr auto kSpool =
    textOption("--spool", "DIR", "of the local account: where the system delivers mail", Takes::folder);
constexpr auto kAutoFetch =
    choiceOption("--auto-fetch", "ANSWER", kYesNo, "whether the clock makes it fetch: yes or no");
constexpr auto kDeleteOnServer = choiceOption("--delete-on-server", "ANSWER", kYesNo,
                                              "whether the server forgets what has been fetched: yes or no");
constexpr auto kFetchAll =
    choiceOption("--fetch-all", "ANSWER", kYesNo, "whether what was fetched once comes again: yes or no");
constexpr auto kKeep =
    choiceOption("--keep", "WHAT", kPolicies, "of an IMAP account: which messages are kept on this machine");
constexpr auto kCompact = choiceOption(
    "--compact", "ANSWER", kYesNo, "whether a mailbox on the server loses what is deleted when it is closed");
constexpr auto kStorePassword =
    flag("--password", "ask for a password on the terminal, and store it", "password");
constexpr auto kPasswordDescriptor =
    descriptorOption("--password-fd", "N", "store the line that this file descriptor gives", "password");
constexpr auto kPasswordCommand = Typed<std::string>{{.name = "--password-command",
                                                      .placeholder = "COMMAND",
                                                      .help = "store the first line that a command prints",
                                                      .takes = Takes::text,
                                                      .group = "password"}};
constexpr auto kForgetPassword = flag("--forget-password", "store no password", "password");

constexpr auto kWords = std::to_array<Parameter>({kAction, kName});
constexpr auto kOptions = std::to_array<Parameter>(
    {kType, kNewName, kHost, kUser, kPort, kSecurity, kAuthorities, kPath, kSpool, kAutoFetch, kDeleteOnServer,
     kFetchAll, kKeep, kCompact, kStorePassword, kPasswordDescriptor, kPasswordCommand, kForgetPassword});

std::string_view typeOf(const MailAccount& account) {
    if (dynamic_cast<const IMAPAccount*>(&account) != nullptr) return kTypes[2];
    return dynamic_cast<const POPAccount*>(&account) != nullptr ? kTypes[0] : kTypes[1];
}

/// What is known of an account, by names, without its password.
struct Fact {
    std::string_view title, key;
    std::string text;      // empty: nothing to tell
    bool isTruth = false;  // then the text is "yes" or "no"
};

Fact truth(std::string_view title, std::string_view key, bool value) {
    return {title, key, std::string(kYesNo[value ? 0 : 1]), true};
}

bool hasServer(const MailAccount& account) {
    return dynamic_cast<const POPAccount*>(&account) != nullptr ||
           dynamic_cast<const IMAPAccount*>(&account) != nullptr;
}

std::vector<Fact> factsOf(const MailAccount& account) {
    const auto port = account.port();
    std::vector<Fact> facts = {
        {"Account", "name", nameOf(account)},
        {"Type", "type", std::string(typeOf(account))},
        {"Folder", "path", account.path()},
        {"Host", "host", account.hostname().value_or("")},
        {"User", "user", account.username().value_or("")},
        {"Port", "port", port ? std::to_string(*port) : ""},
    };
    if (const auto* const local = dynamic_cast<const LocalAccount*>(&account))
        facts.push_back({"Spool", "spool", local->incomingSpoolDirectory().value_or("")});
    facts.push_back(truth("Fetches by itself", "autoFetch", account.shouldAutoFetch()));
    if (!hasServer(account)) return facts;
    facts.push_back({"Security", "security",
                     std::string(kSecurities[static_cast<std::size_t>(account.connectionSecurity())])});
    facts.push_back({"Authorities", "authorities", account.certificateAuthorities().value_or("")});
    if (const auto* const pop = dynamic_cast<const POPAccount*>(&account)) {
        facts.push_back(truth("Deletes on server", "deleteOnServer", pop->deleteMessagesOnServer()));
        facts.push_back(truth("Fetches all", "fetchAll", !pop->onlyFetchUnseenMessages()));
    }
    if (const auto* const imap = dynamic_cast<const IMAPAccount*>(&account)) {
        const auto policy = static_cast<std::size_t>(configuredPolicy(*imap));
        facts.push_back({"Keeps", "keep", std::string(kPolicies[policy])});
        facts.push_back(truth("Compacts", "compact", imap->compactWhenClosingMailboxes()));
    }
    facts.push_back(
        truth("Password stored", "passwordStored", !account.accountInfo()["Password"].string().empty()));
    return facts;
}

std::string asJson(const MailAccount& account) {
    JsonObject object;
    for (const auto& fact : factsOf(account)) {
        if (fact.isTruth)
            object.add(fact.key, fact.text == kYesNo[0]);
        else if (fact.text.empty())
            object.addNull(fact.key);
        else if (fact.key == "port")
            object.addJson(fact.key, fact.text);
        else
            object.add(fact.key, fact.text);
    }
    return object.text();
}

void show(const MailAccount& account, bool inJson) {
    LineOutput output;
    if (inJson) return output.write(asJson(account));
    for (const auto& fact : factsOf(account)) {
        if (fact.text.empty()) continue;
        std::string line(fact.title);
        line.resize(19, ' ');
        output.write(line + printableLine(fact.text));
    }
}

void list(bool inJson) {
    LineOutput output;
    Table table({{.title = "Account"},
                 {.title = "Type"},
                 {.title = "User"},
                 {.title = "Host"},
                 {.title = "Folder", .takesRest = true}},
                outputColumns(), outputIsStyled());
    for (const auto& account : allAccounts()) {
        if (inJson)
            output.write(asJson(*account));
        else
            table.addRow({nameOf(*account), std::string(typeOf(*account)), account->username().value_or(""),
                          account->hostname().value_or(""), lorvale::abbreviateWithTilde(account->path())});
    }
    table.finish();
}

/// What is to be stored; nullopt when the command line says nothing of it.
std::optional<std::string> newPassword(const Arguments& arguments, const MailAccount& account) {
    if (const auto descriptor = arguments.value(kPasswordDescriptor))
        return passwordFromDescriptor(*descriptor);
    if (const auto command = arguments.value(kPasswordCommand)) return passwordFromCommand(*command);
    if (!arguments.has(kStorePassword)) return std::nullopt;
    auto password = lorvale::userAgentOrAbsent().queryUserForPasswordWithMessage(
        "Password of \"" + account.displayName() + "\":", nullptr);
    if (!password || password->empty()) throw Failure("no password was given");
    return password;
}

/// Sets what the command line says of an account.
void apply(const Arguments& arguments, MailAccount& account) {
    const auto isYes = [&](const Typed<std::string>& option) { return arguments.value(option) == kYesNo[0]; };
    const auto need = [](auto* of, const Parameter& option) {
        if (of == nullptr) throw UsageError(std::string(option.name) + " is not for an account of this type");
        return of;
    };
    auto* const pop = dynamic_cast<POPAccount*>(&account);
    auto* const imap = dynamic_cast<IMAPAccount*>(&account);
    auto* const local = dynamic_cast<LocalAccount*>(&account);
    auto* const onServer = hasServer(account) ? &account : nullptr;
    if (const auto name = arguments.value(kNewName)) account.setDisplayName(*name);
    if (const auto host = arguments.value(kHost)) need(onServer, kHost)->setHostname(*host);
    if (const auto user = arguments.value(kUser)) need(onServer, kUser)->setUsername(*user);
    if (const auto port = arguments.value(kPort)) {
        if (*port > std::numeric_limits<std::uint16_t>::max()) throw UsageError("--port takes 1 to 65535");
        need(onServer, kPort)->setPort(static_cast<std::uint16_t>(*port));
    }
    if (const auto how = arguments.value(kSecurity))
        need(onServer, kSecurity)
            ->setConnectionSecurity(
                static_cast<ConnectionSecurity>(std::ranges::find(kSecurities, *how) - kSecurities.begin()));
    if (const auto file = arguments.value(kAuthorities))
        need(onServer, kAuthorities)->setCertificateAuthorities(*file);
    if (const auto path = arguments.value(kPath)) account.setPath(*path);
    if (const auto spool = arguments.value(kSpool)) need(local, kSpool)->setIncomingSpoolDirectory(*spool);
    if (arguments.has(kAutoFetch)) account.setShouldAutoFetch(isYes(kAutoFetch));
    if (arguments.has(kDeleteOnServer))
        need(pop, kDeleteOnServer)->setDeleteMessagesOnServer(isYes(kDeleteOnServer));
    if (arguments.has(kFetchAll)) need(pop, kFetchAll)->setOnlyFetchUnseenMessages(!isYes(kFetchAll));
    if (const auto keep = arguments.value(kKeep))
        need(imap, kKeep)
            ->setCachePolicy(
                static_cast<lorvale::IMAPCachePolicy>(std::ranges::find(kPolicies, *keep) - kPolicies.begin()));
    if (arguments.has(kCompact)) need(imap, kCompact)->setCompactWhenClosingMailboxes(isYes(kCompact));
    if (arguments.has(kForgetPassword)) need(onServer, kForgetPassword)->setPassword(std::nullopt);
    if (const auto password = newPassword(arguments, account))
        need(onServer, kStorePassword)->setPassword(*password);
}

void save(const std::shared_ptr<MailAccount>& account) {
    const auto known = MailAccount::mailAccounts();
    const bool isKnown = std::ranges::find(known, account) != known.end();
    const bool saved = isKnown ? account->saveAccountInfo() : MailAccount::addAccount(account);
    // The folder of the local mailboxes is a setting of its own.
    if (!saved || !lorvale::Defaults::sharedInstance().synchronize())
        throw Failure("the accounts could not be saved");
}

/// Where a new account keeps its files unless it is said: beside the mailboxes, in a folder of its own.
std::string folderNameFor(std::string name) {
    std::ranges::replace(name, '/', '-');
    if (name.starts_with('.')) name.insert(0, "_");
    return name;
}

std::string folderFor(const std::string& name) {
    return lorvale::Defaults::sharedInstance().popSpoolDirectory() + "/" + folderNameFor(name);
}

/// Not among the local mailboxes, where it would show as folders.
std::string mirrorFolderFor(const std::string& name) {
    return lorvale::homeDirectory() + "/.mailhost/" + folderNameFor(name);
}

std::shared_ptr<MailAccount> add(const Arguments& arguments, const std::string& name) {
    const auto all = allAccounts();
    if (std::ranges::find(all, name, [](const auto& each) { return nameOf(*each); }) != all.end())
        throw Failure("there is an account \"" + name + "\" already");
    std::shared_ptr<MailAccount> account;
    if (arguments.value(kType) == kTypes[1]) {
        if (!arguments.has(kPath)) throw UsageError("accounts add --type local needs --path");
        account = LocalAccount::accountWithPath(*arguments.value(kPath));
    } else if (arguments.value(kType) == kTypes[2]) {
        account = IMAPAccount::accountWithPath(arguments.value(kPath).value_or(mirrorFolderFor(name)));
        account->setConnectionSecurity(ConnectionSecurity::fromStart);
    } else {
        account = POPAccount::accountWithPath(arguments.value(kPath).value_or(folderFor(name)));
        account->setConnectionSecurity(ConnectionSecurity::fromStart);
    }
    for (const auto& other : all)
        if (other->path() == account->path())
            throw Failure(account->path() + ": is the folder of \"" + nameOf(*other) + "\"");
    account->setDisplayName(name);
    apply(arguments, *account);
    return account;
}

void remove(const std::shared_ptr<MailAccount>& account, const std::string& name, bool inJson) {
    const auto known = MailAccount::mailAccounts();
    if (std::ranges::find(known, account) == known.end())
        throw Failure("the account of the local mailboxes cannot be removed");
    if (!MailAccount::removeAccount(account)) throw Failure("the accounts could not be saved");
    LineOutput().write(inJson ? asJson(*account)
                              : "Removed " + name + "; its files stay in " + account->path());
}

int run(const Arguments& arguments) {
    const bool inJson = arguments.has(kJson);
    const auto action = arguments.value(kAction);
    const bool changes = action == "add" || action == "set";
    for (const auto& option : kOptions)
        if (!changes && arguments.has(option))
            throw UsageError(std::string(option.name) + " is for add and set");
    if (!action) {
        list(inJson);
        return 0;
    }
    const auto name = arguments.value(kName);
    if (!name || name->empty()) throw UsageError("accounts " + *action + " needs ACCOUNT, the name of one");
    if (action == "add") {
        const auto account = add(arguments, *name);
        save(account);
        show(*account, inJson);
        return 0;
    }
    const auto account = accountNamed(*name);
    if (action == "remove") {
        remove(account, *name, inJson);
        return 0;
    }
    if (action == "set") {
        if (arguments.has(kType)) throw UsageError("--type is for add");
        apply(arguments, *account);
        save(account);
    }
    show(*account, inJson);
    return 0;
}

}  // namespace

const Command accountsCommand = {
    .name = "accounts",
    .summary = "where mail comes from",
    .description =
        "Lists the accounts; adds or removes one, shows what is known of one, or sets that. A password is "
        "never "
        "shown. It is asked for without an echo, and stored only with --password, in a file that its owner "
        "alone "
        "can read; without one it is asked for when it is needed. Removing an account leaves its files.\n\n"
        "An empty HOST, USER, NAME, FILE or DIR takes the setting away.\n\n"
        "In JSON there is a line for each account, with the members name, type, path, host, user, port, "
        "autoFetch, "
        "and those of its type; what is not set is null.",
    .words = kWords,
    .options = kOptions,
    .run = run,
};

}  // namespace mailhost
