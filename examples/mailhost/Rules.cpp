#include "Rules.h"

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#include "Output.h"
#include "lorvale/defaults.h"
#include "lorvale/fetch.h"
#include "lorvale/message.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

constexpr std::string_view kRouterName = "mailhost rules";

/// RFC 5322: visible characters of ASCII, but for the colon.
bool isHeaderName(std::string_view name) {
    return !name.empty() && std::ranges::all_of(name, [](char c) { return c > ' ' && c < 0x7F && c != ':'; });
}

Rule parseRule(std::string_view line, std::size_t number) {
    constexpr std::string_view kContains = " contains ", kArrow = "->";
    const auto contains = line.find(kContains);
    // The last arrow: a text may hold one, a mailbox does not.
    const auto arrow = line.rfind(kArrow);
    Rule rule;
    if (contains != std::string_view::npos && arrow != std::string_view::npos &&
        arrow >= contains + kContains.size()) {
        const auto header = lorvale::trimmed(line.substr(0, contains));
        rule.header = lorvale::foldCase(header);
        rule.text =
            lorvale::trimmed(line.substr(contains + kContains.size(), arrow - contains - kContains.size()));
        rule.mailbox = lorvale::trimmed(line.substr(arrow + kArrow.size()));
    }
    if (!isHeaderName(rule.header) || rule.text.empty() || rule.mailbox.empty())
        throw Failure("line " + std::to_string(number) +
                      " is not \"header contains text -> mailbox\": " + std::string(line));
    return rule;
}

/// Routes one batch of fetched mail.
class RulesRouter : public lorvale::MessageRouter {
public:
    RulesRouter(std::shared_ptr<const std::vector<Rule>> rules, std::string otherMailbox)
        : _rules(std::move(rules)), _otherMailbox(std::move(otherMailbox)) {}

    std::shared_ptr<lorvale::MessageStore> destinationStoreForMessage(
        const std::shared_ptr<lorvale::Message>& message) override {
        const auto rule =
            std::ranges::find_if(*_rules, [&](const Rule& each) { return each.matches(*message); });
        const auto& mailbox = rule != _rules->end() ? rule->mailbox : _otherMailbox;
        auto& store = _opened[mailbox];
        if (store == nullptr)
            store = mailbox.empty() ? MessageRouter::destinationStoreForMessage(message) : open(mailbox);
        return store;
    }
    bool routeMessagesSeparately() const override { return !_rules->empty(); }

private:
    static std::shared_ptr<lorvale::MessageStore> open(const std::string& mailbox) {
        // A flat mailbox cannot say what it has taken, and would get the same mail again the next time.
        return std::dynamic_pointer_cast<lorvale::TarnMbox>(
            lorvale::MessageStore::storeForPath(mailboxPath(mailbox), /*create=*/true));
    }

    const std::shared_ptr<const std::vector<Rule>> _rules;
    const std::string _otherMailbox;
    std::map<std::string, std::shared_ptr<lorvale::MessageStore>> _opened;
};

}  // namespace

bool Rule::matches(lorvale::Message& message) const {
    const auto headers = message.headers();
    const auto values = headers->allHeaders();
    const auto found = values->find(header);
    if (found == values->end()) return false;
    const auto wanted = lorvale::foldCase(text);
    return std::ranges::any_of(found->second, [&](const std::string& value) {
        return lorvale::foldCase(value).find(wanted) != std::string::npos;
    });
}

std::vector<Rule> parseRules(std::string_view text) {
    std::vector<Rule> rules;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const auto end = text.find('\n');
        const auto line = lorvale::trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (!line.empty() && !line.starts_with('#')) rules.push_back(parseRule(line, number));
    }
    return rules;
}

Routing::Routing(std::vector<Rule> rules, std::string otherMailbox) {
    const auto shared = std::make_shared<const std::vector<Rule>>(std::move(rules));
    lorvale::MessageRouter::registerRouterClass(
        {std::string(kRouterName), [](const lorvale::MessageStore&) { return 1.0F; },
         [shared, otherMailbox] { return std::make_unique<RulesRouter>(shared, otherMailbox); }});
}

Routing::~Routing() {
    lorvale::MessageRouter::unregisterRouterClass(kRouterName);
}

std::string mailboxPath(std::string_view name) {
    std::string path(name);
    if (!path.ends_with(".mbox")) path += ".mbox";
    if (path.find('/') == std::string::npos)
        path = lorvale::Defaults::sharedInstance().defaultMailDirectory() + '/' + path;
    return lorvale::standardizePath(path);
}

}  // namespace mailhost
