#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace lorvale {
class Message;
}

namespace mailhost {

/// "header contains text -> mailbox": mail whose header holds the text, in any case of letters, goes to that
/// mailbox.
struct Rule {
    std::string header;  // in lower case
    std::string text;
    std::string mailbox;  // as written

    bool matches(lorvale::Message& message) const;
};

/// The rules of a file, a line each; empty lines and those that begin with "#" do not count.  Throws Failure,
/// with the number of the line, for one that is no rule.
std::vector<Rule> parseRules(std::string_view text);

/// While it lives, everything that is fetched goes where the first rule that matches says, and what none
/// matches to the other mailbox (empty: the mailbox for new mail).  This is how a host puts its own routing in
/// place of the library's. A mailbox is a directory mailbox, which is made if it is missing; a name without a
/// "/" is one in the mail directory.
class Routing {
public:
    Routing(std::vector<Rule> rules, std::string otherMailbox);
    ~Routing();
    Routing(const Routing&) = delete;
    Routing& operator=(const Routing&) = delete;
};

/// The path of a mailbox as a rule or an option names it.
std::string mailboxPath(std::string_view name);

}  // namespace mailhost
