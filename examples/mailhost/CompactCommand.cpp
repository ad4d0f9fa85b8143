#include "Commands.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "ServerMailbox.h"
#include "Terminal.h"
#include "UndoHistory.h"
#include "Work.h"

namespace mailhost {

namespace {

constexpr auto kWords = std::to_array<Parameter>({kDirectoryMailbox});

/// On a server what goes is only told of behind it.
void compactOnServer(const Place& place, lorvale::IMAPStore& store) {
    needServer(place, store);
    store.doCompact();
    settle(store);
    needServer(place, store);
}

int compact(lorvale::MessageStore& store, const Arguments& arguments, const std::optional<Place>& onServer) {
    const auto path = arguments[kDirectoryMailbox];
    const auto before = store.totalCountAndSize();
    if (onServer) {
        compactOnServer(*onServer, dynamic_cast<lorvale::IMAPStore&>(store));
    } else {
        workOn(path, before.size, [&] { store.doCompact(); });
        forgetDeletions(store);
    }
    const auto after = store.totalCountAndSize();
    const auto removed = before.count - after.count;
    const auto freed = before.size - after.size;
    if (arguments.has(kJson)) {
        JsonObject object;
        object.add("removed", removed).add("freed", freed);
        LineOutput().write(object.text());
    } else {
        LineOutput().write(groupedNumber(removed) + (removed == 1 ? " message" : " messages") + " removed, " +
                           groupedNumber(freed) + " bytes freed.");
    }
    return 0;
}

int runCompact(const Arguments& arguments) {
    const auto path = arguments[kDirectoryMailbox];
    if (const auto place = placeOnServer(path)) {
        Mailbox mailbox(path, Mailbox::Access::change);
        return compact(mailbox.store(), arguments, place);
    }
    ChangingMailbox mailbox(path);
    return compact(mailbox.store(), arguments, std::nullopt);
}

std::size_t rebuild(const std::string& path) {
    if (const auto place = placeOnServer(path)) {
        const Mailbox mailbox(path);
        auto& store = dynamic_cast<lorvale::IMAPStore&>(mailbox.store());
        needServer(*place, store);
        store.rebuildTableOfContents();
        settle(store);
        needServer(*place, store);
        return store.totalCount();
    }
    ChangingMailbox mailbox(path);
    auto& store = mailbox.store();
    workOn(path, store.totalCountAndSize().size, [&] { store.rebuildTableOfContents(); });
    forgetDeletions(store);
    return store.totalCount();
}

int runRebuild(const Arguments& arguments) {
    const auto count = rebuild(arguments[kDirectoryMailbox]);
    if (arguments.has(kJson)) {
        JsonObject object;
        object.add("messages", count);
        LineOutput().write(object.text());
    } else {
        LineOutput().write(groupedNumber(count) + (count == 1 ? " message" : " messages") + " listed.");
    }
    return 0;
}

}  // namespace

const Command compactCommand = {
    .name = "compact",
    .summary = "takes deleted messages out of a mailbox",
    .description =
        "Writes the mail of a directory mailbox anew without the messages that are marked as deleted. They are "
        "gone then.\n\n"
        "In JSON the one line has the members removed and freed, in bytes.",
    .words = kWords,
    .options = {},
    .run = runCompact,
};

const Command rebuildCommand = {
    .name = "rebuild",
    .summary = "makes the table of contents anew",
    .description =
        "Reads all mail of a directory mailbox and makes its table of contents anew: after another program has "
        "changed the mail, or where \"mailhost check\" says that the two do not agree. Messages keep their "
        "marks; those that had none count as read. The list of a mailbox on a server is fetched anew.\n\n"
        "In JSON the one line has the member messages.",
    .words = kWords,
    .options = {},
    .run = runRebuild,
};

}  // namespace mailhost
