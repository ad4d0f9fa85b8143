// Rules of any bytes are refused or read; what was read, written as rules, is read as the same again.

#include "examples/mailhost/Rules.cpp"  // a part of a program, not of the library
#include "fuzz/FuzzTarget.h"

using namespace mailhost;

LORVALE_FUZZ_TARGET(text) {
    std::vector<Rule> rules;
    try {
        rules = parseRules(text);
    } catch (const Failure&) {
        return;
    }
    std::string written;
    for (const auto& rule : rules) {
        if (rule.header.empty() || rule.text.empty() || rule.mailbox.empty()) std::abort();
        written += rule.header + " contains " + rule.text + " -> " + rule.mailbox + '\n';
    }
    const auto again = parseRules(written);
    if (again.size() != rules.size()) std::abort();
    for (std::size_t i = 0; i < rules.size(); ++i)
        if (again[i].mailbox != rules[i].mailbox || again[i].text != rules[i].text) std::abort();
}
