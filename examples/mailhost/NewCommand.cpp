/// Making and removing mailboxes.
#include <unistd.h>

#include <filesystem>

#include "Accounts.h"
#include "Commands.h"
#include "ConsoleAgent.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "ServerMailbox.h"
#include "lorvale/platform/paths.h"

namespace mailhost {

namespace {

constexpr auto kWords = std::to_array<Parameter>({kDirectoryMailbox});
constexpr auto kPlace =
    mailboxWord("MAILBOX", "a mailbox or, in an account, a folder: a path, or ACCOUNT/NAME");
constexpr auto kRemoveWords = std::to_array<Parameter>({kPlace});
constexpr auto kOptions = std::to_array<Parameter>({kYes});

bool isThere(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

/// For a mailbox that lies in no account the folder around it serves as one.
Place placeOf(const std::string& typed) {
    if (auto place = placeInAccount(typed)) return std::move(*place);
    const std::filesystem::path path = std::filesystem::absolute(lorvale::standardizePath(typed));
    std::error_code ignored;
    if (!std::filesystem::is_directory(path.parent_path(), ignored))
        throw Failure(typed + ": there is no folder " + path.parent_path().string());
    static_cast<void>(
        lorvale::LocalAccount::localAccount());  // another one is not to become that of the process
    return {lorvale::LocalAccount::accountWithPath(path.parent_path().string()), path.filename().string(),
            path.string()};
}

void tell(const Arguments& arguments, const char* what, const std::string& path) {
    if (arguments.has(kJson)) {
        JsonObject object;
        object.add("path", path);
        LineOutput().write(object.text());
    } else {
        LineOutput().write(std::string(what) + " " + path);
    }
}

void refuseInMailbox(const std::filesystem::path& path) {
    for (auto above = path.parent_path(); above.has_relative_path(); above = above.parent_path())
        if (above.extension() == ".mbox")
            throw Failure(path.string() + ": " + above.string() + " is a mailbox, and holds no other ones");
}

int runNew(const Arguments& arguments) {
    if (arguments.has(kYes)) ConsoleAgent::agreeToAll();
    const auto typed = arguments[kDirectoryMailbox];
    if (const auto onServer = placeOnServer(typed)) {
        if (!onServer->account->createMailboxNamed(onServer->name, nullptr))
            throw Failure(typed + ": was not made");
        tell(arguments, "Made", nameOf(*onServer->account) + "/" + onServer->name);
        return 0;
    }
    const auto place = placeOf(typed);
    const auto path = place.path.ends_with(".mbox") ? place.path : place.path + ".mbox";
    refuseInMailbox(path);
    if (isThere(path)) throw Failure(path + ": is there already");
    const auto made = place.account->createMailboxNamed(place.name, nullptr);
    if (!made) throw Failure(typed + ": was not made");
    tell(arguments, "Made", made->path);
    return 0;
}

std::string notRemoved(const std::string& name, const Arguments& arguments) {
    const bool wasAsked = arguments.has(kYes) || ::isatty(STDIN_FILENO) == 1;
    return name + ": was not removed" + (wasAsked ? "" : "; where nobody can be asked, --yes agrees");
}

int removeOnServer(const Arguments& arguments, const Place& place) {
    const auto account = serverAccount(place);
    const auto shown = nameOf(*account) + "/" + place.name;
    if (!account->connection()) throw Failure(shown + ": needs the server");
    const auto isThereNow = [&] {
        bool found = false;
        forEachMailbox(*account, [&](const std::string& name) { found = found || name == place.name; });
        return found;
    };
    if (!isThereNow()) throw Failure(shown + ": is not there");
    account->removeMailbox(
        std::make_shared<const lorvale::AccountItem>(lorvale::AccountItem{place.account, place.name}));
    if (isThereNow()) throw Failure(notRemoved(shown, arguments));
    tell(arguments, "Removed", shown);
    return 0;
}

int runRemove(const Arguments& arguments) {
    if (arguments.has(kYes)) ConsoleAgent::agreeToAll();
    const auto typed = arguments[kPlace];
    if (const auto onServer = placeOnServer(typed)) return removeOnServer(arguments, *onServer);
    auto place = placeOf(typed);
    if (!isThere(place.path) && isThere(place.path + ".mbox")) place.path += ".mbox";
    if (!isThere(place.path)) throw Failure(typed + ": is not there");
    const bool isMailbox = place.path.ends_with(".mbox");
    if (!isMailbox && (!placeInAccount(typed) || !std::filesystem::is_directory(place.path)))
        throw Failure(typed + ": neither a mailbox \"NAME.mbox\" nor a folder of an account");
    place.account->removeMailbox(
        std::make_shared<const lorvale::AccountItem>(lorvale::AccountItem{place.account, place.path}));
    if (isThere(place.path)) throw Failure(notRemoved(typed, arguments));
    tell(arguments, "Removed", place.path);
    return 0;
}

}  // namespace

const Command newCommand = {
    .name = "new",
    .summary = "makes a mailbox",
    .description =
        "Makes an empty directory mailbox; \".mbox\" is put behind its name where it is missing. Asks before "
        "it "
        "makes a folder for it, on the terminal; without one the answer is no.\n\n"
        "In JSON the one line has the member path.",
    .words = kWords,
    .options = kOptions,
    .run = runNew,
};

const Command removeCommand = {
    .name = "remove",
    .summary = "deletes a mailbox, or a folder of them",
    .description =
        "Deletes a mailbox with all mail in it, for good, or a folder of an account with all mailboxes in it. "
        "Asks "
        "first, on the terminal; without one the answer is no. A mailbox that is open elsewhere stays. Of one "
        "that "
        "is reached by a symbolic link the link goes.\n\n"
        "In JSON the one line has the member path.",
    .words = kRemoveWords,
    .options = kOptions,
    .run = runRemove,
};

}  // namespace mailhost
