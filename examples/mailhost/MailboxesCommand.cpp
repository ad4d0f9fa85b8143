#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>

#include "Accounts.h"
#include "Commands.h"
#include "ConsoleAgent.h"
#include "Json.h"
#include "Mailbox.h"
#include "Table.h"
#include "Terminal.h"
#include "lorvale/imap.h"

namespace mailhost {

namespace {

using lorvale::AccountItemShare;
using lorvale::MailAccount;

constexpr auto kAccount = Typed<std::string>{{.name = "ACCOUNT",
                                              .placeholder = {},
                                              .help = "the name of an account; all of them where it is missing",
                                              .takes = Takes::text,
                                              .isOptional = true}};
constexpr auto kWords = std::to_array<Parameter>({kAccount});

struct Counts {
    std::size_t messages = 0, unread = 0;
    std::optional<std::uint64_t> size = 0;
};

/// A line of the tree.
struct Row {
    std::string account, name, path;
    std::size_t depth = 0;  // 0: the account itself
    bool isFolder = false;
    std::optional<Counts> counts = {};  // of a mailbox that can be read
    std::string shown = {};             // in the table, in place of the name
};

class Tree {
public:
    explicit Tree(bool asJson)
        : _asJson(asJson),
          _table({{.title = "Mailbox", .takesRest = true},
                  {.title = "Messages", .numeric = true},
                  {.title = "Unread", .numeric = true},
                  {.title = "Bytes", .numeric = true}},
                 outputColumns(), outputIsStyled()) {}

    void add(MailAccount& account) {
        print({.account = nameOf(account),
               .name = account.displayName(),
               .path = account.path(),
               .isFolder = true});
        if (auto* const onServer = dynamic_cast<lorvale::IMAPAccount*>(&account))
            addBelowOnServer(*onServer, nullptr, 1);
        else
            addBelow(account, nullptr, 1);
    }
    void finish() { _table.finish(); }
    bool allCouldBeRead() const { return _unreadable == 0; }

private:
    /// A mailbox on a server may hold messages and others; how many bytes its messages take nobody tells.
    void addBelowOnServer(lorvale::IMAPAccount& account, const AccountItemShare& item, std::size_t depth) {
        lorvale::IMAPAccount::Attributes attributes;
        const auto items = account.mailboxesForItem(item, &attributes);
        for (std::size_t i = 0; i < items.size(); ++i) {
            const auto& each = items[i];
            const auto& words = attributes[i];
            Row row{.account = nameOf(account),
                    .name = account.displayNameForItem(each),
                    .path = each->path,
                    .depth = depth};
            row.isFolder = std::ranges::find(words, lorvale::IMAPMailboxAttributeNoSelect) != words.end();
            if (!row.isFolder) row.counts = countOnServer(account, each);
            // Names are typed with the server's separator, which only this tells.
            if (item && row.path != item->path + '/' + row.name) row.shown = row.path;
            print(row);
            if (account.isItemExpandable(each)) addBelowOnServer(account, each, depth + 1);
        }
    }

    static std::optional<Counts> countOnServer(lorvale::IMAPAccount& account, const AccountItemShare& item) {
        const auto info = account.userInfoForItem(item);
        if (!info || (*info)[lorvale::MessageStoreTotalCount].string().empty()) return std::nullopt;
        const auto number = [&](std::string_view key) {
            return static_cast<std::size_t>(std::strtoull((*info)[key].string().c_str(), nullptr, 10));
        };
        return Counts{number(lorvale::MessageStoreTotalCount), number(lorvale::MessageStoreUnreadCount), {}};
    }

    void addBelow(MailAccount& account, const AccountItemShare& item, std::size_t depth) {
        for (const auto& each : account.mailboxesForItem(item)) {
            Row row{.account = account.displayName(),
                    .name = account.displayNameForItem(each),
                    .path = each->path,
                    .depth = depth,
                    .isFolder = account.isItemExpandable(each)};
            if (!row.isFolder) row.counts = countIn(row.path);
            print(row);
            if (row.isFolder && isNew(row.path)) addBelow(account, each, depth + 1);
        }
    }

    std::optional<Counts> countIn(const std::string& path) {
        try {
            Mailbox mailbox(path);
            const auto total = mailbox.store().totalCountAndSize();
            return Counts{total.count, mailbox.store().unreadCount(), total.size};
        } catch (const Failure& failure) {
            ++_unreadable;
            say(std::string("mailhost: ") + failure.what());
            return std::nullopt;
        }
    }

    /// Whether a folder is seen for the first time: several links may lead to one.
    bool isNew(const std::string& folder) {
        std::error_code error;
        const auto real = std::filesystem::canonical(folder, error);
        return !error && _seen.insert(real.string()).second;
    }

    void print(const Row& row) {
        if (_asJson) return _output.write(asJson(row));
        const auto name = std::string(2 * row.depth, ' ') + (row.shown.empty() ? row.name : row.shown);
        if (row.isFolder) return _table.addRow({name + "/", "", "", ""}, row.depth == 0);
        if (!row.counts) return _table.addRow({name, "-", "-", "-"});
        const auto& counts = *row.counts;
        _table.addRow({name, groupedNumber(counts.messages), groupedNumber(counts.unread),
                       counts.size ? groupedNumber(*counts.size) : "-"},
                      counts.unread > 0);
    }

    static std::string asJson(const Row& row) {
        JsonObject object;
        object.add("account", row.account).add("name", row.name).add("path", row.path).add("depth", row.depth);
        object.add("kind", row.depth == 0 ? "account" : row.isFolder ? "folder" : "mailbox");
        if (row.counts) {
            const auto& counts = *row.counts;
            object.add("messages", counts.messages).add("unread", counts.unread);
            if (counts.size)
                object.add("size", *counts.size);
            else
                object.addNull("size");
        } else if (!row.isFolder) {
            object.addNull("messages").addNull("unread").addNull("size");
        }
        return object.text();
    }

    const bool _asJson;
    Table _table;
    LineOutput _output;
    std::set<std::string> _seen;
    std::size_t _unreadable = 0;  // mailboxes
};

int run(const Arguments& arguments) {
    Tree tree(arguments.has(kJson));
    if (const auto name = arguments.value(kAccount)) {
        tree.add(*accountNamed(*name));
    } else {
        for (const auto& account : allAccounts()) tree.add(*account);
    }
    tree.finish();
    return tree.allCouldBeRead() ? 0 : 1;
}

}  // namespace

const Command mailboxesCommand = {
    .name = "mailboxes",
    .summary = "the tree of mailboxes",
    .description =
        "Shows the mailboxes of an account, or of all, in their folders, with how many messages each holds, "
        "how "
        "many of them are unread, and how many bytes they take. No mailbox is locked or changed. The folders "
        "behind a link are shown where they are met first.\n\n"
        "In JSON a line has the members account, name, path, depth, kind (account, folder or mailbox) and, for "
        "a "
        "mailbox, messages, unread and size, which are null where it cannot be read.",
    .words = kWords,
    .options = {},
    .run = run,
};

}  // namespace mailhost
