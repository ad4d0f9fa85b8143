#include <gmock/gmock.h>

#include <map>
#include <memory>

#include "base/platform/FullUserName.h"
#include "base/text/StringUtils.h"
#include "lorvale/message/address_manager.h"
#include "lorvale/message/addresses.h"
#include "lorvale/message/mailboxes.h"
#include "lorvale/message/subjects.h"
#include "lorvale/mime.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/user_defaults.h"
#include "lorvale/values/text.h"
#include "mail/encoding/MimeHeaderEncoding.h"
#include "tests/support/TextRows.h"
#include "tests/support/TimeGrowth.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

TEST(Addresses, ListIsCutAtCommasOutsideQuotes) {
    EXPECT_EQ(addressList(""), std::nullopt);
    EXPECT_THAT(addressList(ExactCopy("\"Doe, Jane\" <x>, y")),
                Optional(ElementsAre("\"Doe, Jane\" <x>", "y")));
    EXPECT_THAT(addressList(ExactCopy(",a ,, \n\tb,")), Optional(ElementsAre("a ", "b")));
    EXPECT_THAT(addressList("\"open, a, b"), Optional(ElementsAre("\"open, a, b")));
    EXPECT_THAT(addressList(" , "), Optional(ElementsAre()));
}

std::string taken(std::string_view list) {
    std::string text;
    for (const auto& each : mailboxesInList(list))
        text += "[" + each.name + "|" + each.address + "|" + each.comment + "|" + each.group + "]";
    return text;
}

/// What is common stands in docs/dialects.md.
TEST(Mailboxes, OddListsAreTakenApart) {
    const TextRow rows[] = {
        {"nothing", " , (a) ,;", ""},
        {"names in pieces", R"("A, \"B" C. <a@x>, D <d@x>)", R"([A, "B C.|a@x||][D|d@x||])"},
        {"groups, one empty", "g \"h\": a@x, B <b@x>;, c@x, u:;", "[|a@x||g h][B|b@x||g h][|c@x||]"},
        {"comments nest", "a (b (c) \\) d) @ x . y (e)", "[|a@x.y|b (c) ) d e|]"},
        {"an address without brackets behind a name", "Jane Doe jd@x", "[Jane Doe|jd@x||]"},
        {"no address at all", "Jane Doe", "[|Jane Doe||]"},
        {"an empty address", "MAILER-DAEMON <>", "[MAILER-DAEMON|||]"},
        {"a literal, a quoted local part", "\"a b\"@[1:2]", "[|\"a b\"@[1:2]||]"},
        {"a quote that is never closed", "O\"B <a@x>, c@x", "[O\"B|a@x||][|c@x||]"},
        {"a bracket that is never closed", "A <a@x, b@x", "[A|a@x||][|b@x||]"},
        {"a comma is missing", "A <a@x> B <b@x>", "[A|a@x||][B|b@x||]"},
        {"brackets in brackets", "A <<a@x>>", "[A|a@x||]"},
        {"text in place of an address", "<undisclosed:;@x>", "[|undisclosed||]"},
    };
    expectRows(taken, rows);
    const std::vector<Mailbox> list = {
        {"A, \"B\"", "a@x", "c (d)", ""}, {"", "b@x", "", "g"}, {" C  D ", "c@x", "", "g"}};
    EXPECT_EQ(mailboxesInList(mailboxListText(list)), list);
}

/// All of one thing: work that grew with the square would take minutes.
TEST(Mailboxes, CostGrowsWithTheLengthOfAList) {
    for (const std::string_view piece : {"=?",   "=?a?q?",   "=?a?q?<?=", "=?utf-8?q?=41?= ",
                                         "\"",   "(",        "(\"",       "[",
                                         "<",    ">",        "<a@x ",     ",",
                                         ":",    ";",        "a ",        "@a",
                                         "\\\"", "\xC3\xA9", "\xC3\xA9 ", "a:",
                                         " "}) {
        testing::expectTimeInProportion(piece, 5'000, [&](const std::string& text) {
            const auto read = decodeAddressHeader(text);
            mailboxesInList(read);
            mailboxListText(mailboxesInList(text));
            EXPECT_EQ(encodeAddressHeader(text, 4).empty(), trimmed(text).empty()) << piece;
            encodeTextHeader(text, 4);
            EXPECT_FALSE(decodeMimeHeaderValue(text, MailDialect::standard).empty());
        });
    }
}

TEST(Subjects, ReplyMarksGoOnceThroughTheList) {
    EXPECT_EQ(stringByRemovingReAndFwd("Re: re: fwd: x"), "x");
    EXPECT_EQ(stringByRemovingReAndFwd("Fwd: Re: x"), "Re: x");
    EXPECT_EQ(stringByRemovingReAndFwd("RE:FWD:fwd: Re"), " Re");
    EXPECT_EQ(stringByRemovingReAndFwd("Regarding"), "Regarding");
}

TEST(Addresses, PureAddressAndNameAreToldApart) {
    const TextRow rows[] = {
        {"brackets and a comment", "Jane (home) <jd>", "jd | Jane (home)"},
        {"quotes around the name", "\"Doe, Jane\" <jd@x>", "jd@x | Doe, Jane"},
        {"quotes in the address stay", "\"j d\"@x", "\"j d\"@x | \"j d\"@x"},
        {"a bracket in quotes is none", "\"a <b\" <c>", "c | a <b"},
        {"a bracket in a comment is none", "jd (a <b>)", "jd | a <b>"},
        {"nested comments", "jd (a (b) c) d", "jd d | a (b) c"},
        {"two comments", "(a) jd(b)", "jd | a b"},
        {"a backslash protects", "jd (a \\) b)", "jd | a ) b"},
        {"a backslash stays in the address", "j\\<d <x\\>y>", "x\\>y | j<d"},
        {"white space collapses", "  Jane \t Doe\n <  j  d >", "j d | Jane Doe"},
        {"what is behind the brackets is part of the name", "<jd> Jane", "jd | Jane"},
        {"the last bracket wins", "<a<b>", "b | <a<b>"},
        {"closing marks without opening ones", "a) b>", "a b> | a) b>"},
        {"unclosed marks", "Jane <jd (x", "jd | Jane"},
        {"letters beyond ASCII", "J\u00F6rg <j\u00F6@x>", "j\u00F6@x | J\u00F6rg"},
        {"a backslash at the end", "jd\\", "jd\\ | jd\\"},
        {"nothing", "", " | "},
        {"a listing of sent mail", "me (To: Jane <jd>)", "me | To: jd"},
        {"such a listing loses its last character", "To: jane", "To: jane | To: jan"},
        {"such a listing without an address", "To: ", "To: | To: "},
    };
    const auto apart = [](std::string_view text) {
        return uncommentedAddress(text) + " | " + addressComment(text);
    };
    expectRows(apart, rows);
}

TEST(Addresses, LooseMatchPassesOverPunctuation) {
    EXPECT_TRUE(looselyMatches("Jane-Doe", "jane doe"));
    EXPECT_FALSE(looselyMatches("JaneDoe", "Jane Doe"));
    EXPECT_TRUE(looselyMatches("J\u00FCrgen", "j-rgen"));
    EXPECT_TRUE(looselyMatches("", ""));
}

class OneBook : public MailAddressManager {
public:
    std::optional<std::string> expandUserAlias(std::string_view user) override {
        ++asked;
        const auto found = aliases.find(user);
        return found == aliases.end() ? std::nullopt : std::optional(found->second);
    }
    std::map<std::string, std::string, std::less<>> aliases;
    int asked = 0;
};

class OwnAddresses : public ::testing::Test {
protected:
    OwnAddresses() { setLoginName("jdoe"); }
    ~OwnAddresses() override {
        setLoginName({});
        MailAddressManager::registerAddressManagerClass({});
    }
};

TEST_F(OwnAddresses, AreTheLoginTheFullNameAndTheAlternates) {
    UserDefaults::standard().setArgument("Alternates", " jane@x.example ,, JD@Y.example");
    for (const auto& mine : {std::string("Jane <jdoe>"), fullUserName(), std::string("Jane <Jane@X.example>"),
                             std::string("jd@y.example")})
        EXPECT_TRUE(isMyAddress(mine)) << mine;
    for (const auto* other : {"other@x.example", "jane@x", ""}) EXPECT_FALSE(isMyAddress(other)) << other;
    EXPECT_FALSE(isMyAddress(std::nullopt));
    const std::vector<std::string> all = {"a@x", "jdoe", "b@x"};
    EXPECT_THAT(addressArrayExcludingSelf(all), ElementsAre("a@x", "b@x"));
    UserDefaults::standard().removeArguments();
    EXPECT_THAT(uncommentedAddressList(std::vector<std::string>{"A <a>", "b (B)"}),
                Optional(ElementsAre("a", "b")));
    EXPECT_EQ(uncommentedAddressList({}), std::nullopt);
}

TEST_F(OwnAddresses, AreFoundThroughAliasesAlsoInCircles) {
    EXPECT_EQ(MailAddressManager::addressManager(), nullptr);
    MailAddressManager::registerAddressManagerClass([] { return std::make_shared<OneBook>(); });
    const auto book = std::dynamic_pointer_cast<OneBook>(MailAddressManager::addressManager());
    ASSERT_TRUE(book);
    book->aliases = {{"jane", "Jane <boss>"}, {"boss", "JDoe"}, {"a", "b"}, {"b", "a"}};
    EXPECT_TRUE(isMyAddress("Jane Doe <jane>"));
    book->asked = 0;
    EXPECT_FALSE(isMyAddress("a"));
    EXPECT_EQ(book->asked, 2);
}

}  // namespace
}  // namespace lorvale
