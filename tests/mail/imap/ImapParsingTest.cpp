/// What a server sends, taken apart: lists, brackets, names, sets, and what is fetched.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "lorvale/imap.h"
#include "mail/imap/CommandText.h"
#include "mail/imap/FetchParsing.h"
#include "mail/imap/ListParsing.h"
#include "mail/imap/MailboxListing.h"
#include "mail/imap/MailboxNames.h"
#include "mail/imap/MessageSets.h"
#include "mail/imap/Survivors.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using ::testing::ElementsAre;
using testing::ExactCopy;
using ::testing::Optional;

constexpr auto kClassic = MailDialect::classic, kStandard = MailDialect::standard;

std::string classicList(std::string_view text, Spaces spaces = Spaces::separateWords) {
    const auto list = parseClassicList(Data::copyOf(text), spaces);
    return list ? list->description() : "none";
}

TEST(ImapLists, AreReadInTheClassicManner) {
    const struct {
        const char* why;
        std::string_view in, out;
    } rows[] = {
        {"flags", R"((\Seen \Deleted))", R"((\Seen \Deleted))"},
        {"NIL is an empty text", R"((NIL "a" (b c)))", "( a (b c))"},
        {"a literal", "(BODY[HEADER] {5}\r\nab)\"e)", "(BODY[HEADER] ab)\"e)"},
        {"an empty literal", "(a {0}\r\n)", "(a )"},
        {"a literal that lies ends the list", "(a {9}\r\nabc)", "(a)"},
        {"an empty quoted text repeats what stood before it", R"(("a" "" ("b") ""))", "(a a (b) (b))"},
        {"and is nothing where it stands first", R"(("" "a"))", "(a)"},
        {"quoted texts know no escapes", R"(("a\" b))", R"((a\ b))"},
        {"white space in front of a quoted text goes", R"(("  a "))", "(a )"},
        {"a star ends the list", R"((\Seen \*))", R"((\Seen \))"},
        {"the rest is nobody's", "x (a) (b)", "(a)"},
        {"without an end", "(a (b", "(a (b))"},
        {"no list", "a b", "none"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(classicList(row.in), row.out);
    }
    EXPECT_EQ(classicList("(a b \"c\" (d e) f)", Spaces::joinWords), "(a b \"c\" (d e) f)");
    EXPECT_EQ(parseClassicList(Data::ofStatic("(a b (c))"), Spaces::joinWords)->list().size(), 2u);
}

TEST(ImapLists, AreReadByTheStandard) {
    const auto values = [](std::string_view text) {
        return IMAPValue(parseValues(Data::copyOf(text))).description();
    };
    const struct {
        const char* why;
        std::string_view in, out;
    } rows[] = {
        {"escapes", R"(("a\"b\\c" ""))", R"(((a"b\c )))"},
        {"NIL in any case", "(nil NILS \"NIL\")", "((NIL NILS NIL))"},
        {"a section is one word", "(BODY[HEADER.FIELDS (DATE FROM)]<0> {2}\r\nab UID 7)",
         "((BODY[HEADER.FIELDS (DATE FROM)]<0> ab UID 7))"},
        {"flags", R"((\Seen \* $Fwd))", R"(((\Seen \* $Fwd)))"},
        {"a literal of bytes", "(~{3}\r\n\0)( UID ~x)", "()"},
        {"a literal that lies", "(a {4294967296}\r\nabc)", "((a))"},
        {"a quoted text without an end", "(a \"b\r\n c)", "((a))"},
    };
    for (const auto& row : rows) {
        if (row.why == std::string_view("a literal of bytes")) continue;  // holds a NUL: below
        SCOPED_TRACE(row.why);
        EXPECT_EQ(values(row.in), row.out);
    }
    EXPECT_EQ(values(std::string_view("(~{3}\r\n\0)( UID ~x)", 18)), std::string_view("((\0)( UID ~x))", 14));
}

TEST(ImapLists, NestAsDeepAsTheyLikeAndCostNoMoreThanTheirLength) {
    const std::string deep(100'000, '(');
    std::string wide = "(\"" + std::string(400'000, 'a') + '"';
    for (int i = 0; i < 100'000; ++i) wide += " \"\"";
    for (const auto& text : {deep, deep + std::string(100'000, ')'), wide}) {
        EXPECT_TRUE(parseClassicList(Data::copyOf(text), Spaces::separateWords).has_value());
        EXPECT_LE(parseValues(Data::copyOf(text)).size(), 1u);
    }
    std::string empty = "(";
    for (int i = 0; i < kMostValues; ++i) empty += "()";
    EXPECT_EQ(parseClassicList(Data::copyOf(empty + ")"), Spaces::separateWords)->list().size(), 1'000'000u);
    EXPECT_EQ(parseValues(Data::copyOf(empty + "())"))[0].list().size(), 1'000'000u);
    int levels = 0;
    for (auto value = *parseClassicList(Data::copyOf(deep.substr(0, 100) + "x"), Spaces::separateWords);
         value.isList() && !value.list().empty(); value = IMAPValue(value.list()[0]))
        ++levels;
    EXPECT_EQ(levels, 100);
}

TEST(ImapLists, AnswerWithAValueInBrackets) {
    const auto value = [](std::string_view text, MailDialect dialect) {
        const auto found = responseValue(text, dialect);
        return std::string(found.key) + "=" + std::string(found.value.value_or("none"));
    };
    EXPECT_EQ(value("[UIDVALIDITY 123] ok", kClassic), "UIDVALIDITY=123");
    EXPECT_EQ(value("done [READ-WRITE] SELECT", kClassic), "READ-WRITE=none");
    EXPECT_EQ(value("[READ-ONLY] done", kStandard), "READ-ONLY=none");
    EXPECT_EQ(value("done [READ-ONLY]", kStandard), "=none");
    EXPECT_EQ(value("[UIDNEXT 4", kStandard), "=none");
}

TEST(ImapNames, GoOutAsTheDialectHasThem) {
    EXPECT_EQ(mailboxNameForName("My Mail"), "\"My Mail\"");
    EXPECT_EQ(mailboxNameForName("\"My Mail"), "\"My Mail");
    EXPECT_EQ(mailboxNameForName("a\"b"), "a\"b");
    const struct {
        std::string_view name, wire;
    } rows[] = {
        {"INBOX", "INBOX"},           {"Tom & Jerry", "Tom &- Jerry"},
        {"Entwürfe", "Entw&APw-rfe"}, {"台北/日本語", "&U,BTFw-/&ZeVnLIqe-"},
        {"a😀", "a&2D3eAA-"},          {"a\tb", "a&AAk-b"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(modifiedUtf7(row.name), row.wire);
        EXPECT_EQ(fromModifiedUtf7(ExactCopy(row.wire)), row.name);
    }
    // What no program writes stays as it stands: a surrogate alone, an ASCII letter, bits left over, no end.
    for (const auto* odd : {"&2D0-", "&AGE-", "&APx-", "&APw", "&", "&A-x", "a&b&", "Entwürfe"})
        EXPECT_EQ(fromModifiedUtf7(odd), odd);
}

TEST(ImapSets, AreWrittenInBothDialects) {
    using Numbers = std::vector<std::uint32_t>;
    const struct {
        Numbers numbers;
        std::string_view classic, standard;
    } rows[] = {
        {{1, 2, 3}, "1:2,3", "1:3"},
        {{1, 2, 3, 7}, "1:3,7", "1:3,7"},
        {{1, 2}, "1,2", "1:2"},
        {{4}, "4", "4"},
        {{3, 1, 2, 2, 9}, "3,1:2,2,9", "1:3,9"},
        {{}, "", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(messageSet(row.numbers, kClassic), row.classic);
        EXPECT_EQ(messageSet(row.numbers, kStandard), row.standard);
    }
    EXPECT_THAT(messageSets(Numbers{1, 2, 3, 11, 13, 15}, 6), ElementsAre("1:3,11", "13,15"));
    EXPECT_EQ(numbersOfSet("4,9:7,2"), (Numbers{4, 7, 8, 9, 2}));
    EXPECT_EQ(numbersOfSet("1,1:4294967295,5"), Numbers{1});
    EXPECT_EQ(numbersOfSet("1:3", 3), (Numbers{1, 2, 3}));
}

TEST(ImapExpunges, FindEachMessageByItsNumberAtThatTime) {
    std::mt19937 random(1);
    for (std::size_t size = 0; size < 70; ++size) {
        Survivors survivors(size);
        std::vector<std::size_t> left(size);
        std::iota(left.begin(), left.end(), std::size_t{0});
        while (!left.empty()) {
            ASSERT_EQ(survivors.count(), left.size());
            const auto place = left.begin() + static_cast<std::ptrdiff_t>(random() % left.size());
            const auto number = static_cast<std::size_t>(place - left.begin()) + 1;
            EXPECT_TRUE(survivors.has(*place));
            EXPECT_EQ(survivors.take(number), *place);
            EXPECT_FALSE(survivors.has(*place));
            left.erase(place);
        }
    }
    Survivors many(300'000);
    for (std::size_t i = 0; i < 300'000; ++i) EXPECT_EQ(many.take(1), i);  // in no time
}

TEST(ImapAnswers, AreFoundByTheirNames) {
    const Data texts[] = {Data::ofStatic("FETCH (UID 7)"),
                          Data::ofStatic("FETCH (FLAGS (\\Seen) UID 8 RFC822.SIZE 5)")};
    EXPECT_EQ(parseFlagsResponse(texts, kClassic)->description(), "(\\Seen)");
    EXPECT_EQ(parseUIDsResponse(texts, kClassic), std::nullopt);  // the first item of the last text counts
    EXPECT_THAT(parseUIDsResponse(texts, kStandard), Optional(std::string("8")));
    EXPECT_THAT(parseRFC822SizeResponse(texts, kStandard), Optional(std::string("5")));
    EXPECT_EQ(parseTextSectionResponse(texts, kClassic)->view(), "(FLAGS (\\Seen) UID 8 RFC822.SIZE 5)");
    EXPECT_EQ(parseTextSectionResponse(texts, kStandard), std::nullopt);
    const Data whole[] = {Data::ofStatic("FETCH (RFC822.SIZE 4 BODY[] a\r\nbcd)")};
    EXPECT_THAT(parseRFC822Response(whole), Optional(std::string("a\nb")));
    EXPECT_EQ(parseRFC822Response({}), std::nullopt);
}

constexpr std::string_view kEnvelope =
    R"(("Fri, 23 Aug 2002 11:04:35 +0200" "=?utf-8?Q?caf=C3=A9?=" (("Doe, Jane" NIL "jane" "x.example"))"
    R"( (NIL NIL "b" "y.example") ("=?utf-8?Q?=C3=A9?=" NIL "c" "z.example")) NIL NIL NIL NIL NIL NIL "<1@x>"))";

TEST(ImapAnswers, GiveTheHeadersOfAnEnvelope) {
    const Data texts[] = {Data(formatText("FETCH (ENVELOPE %@)", kEnvelope))};
    const auto classic = parseEnvelopeResponse(texts, kClassic),
               standard = parseEnvelopeResponse(texts, kStandard);
    EXPECT_EQ(classic.textForKey("subject"), "=?utf-8?Q?caf=C3=A9?=");
    EXPECT_EQ(classic.textForKey("from"), "\"Doe, Jane\" <jane@x.example>, b@y.example, \"é\" <c@z.example>");
    EXPECT_EQ(standard.textForKey("subject"), "café");
    EXPECT_EQ(standard.textForKey("from"), "\"Doe, Jane\" <jane@x.example>, b@y.example, é <c@z.example>");
    EXPECT_EQ(std::get<Date>(*classic.find("date")), std::get<Date>(*standard.find("date")));

    const Data later[] = {Data(formatText("FETCH (UID 4 ENVELOPE %@)", kEnvelope))};
    EXPECT_TRUE(parseEnvelopeResponse(later, kClassic).empty());
    EXPECT_EQ(parseEnvelopeResponse(later, kStandard), standard);
    const testing::LogCapture log;
    const Data nobody[] = {Data::ofStatic("FETCH (ENVELOPE (\"?\" \"s\" NIL NIL))")};
    EXPECT_EQ(parseEnvelopeResponse(nobody, kClassic).textForKey("from"), "");
    EXPECT_TRUE(parseEnvelopeResponse(nobody, kClassic).find("date"));
    EXPECT_FALSE(parseEnvelopeResponse(nobody, kStandard).find("date"));
    const Data two[] = {Data::ofStatic("FETCH (ENVELOPE (\"?\" \"s\"))")};
    EXPECT_TRUE(parseEnvelopeResponse(two, kClassic).empty());
}

TEST(ImapAnswers, GiveSizeAndHeadersForAListing) {
    const std::string block =
        "Date: Fri, 23 Aug 2002 11:04:35 +0200\r\nSUBJECT: =?utf-8?Q?=C3=A9?=\r\nFrom: a@b\r\n\r\n";
    const Data sizeFirst[] = {
        Data(formatText("FETCH (RFC822.SIZE 300 BODY[HEADER.FIELDS (DATE SUBJECT FROM)] {%d}\r\n%@)\r\n",
                        block.size(), block))};
    const Data sizeLast[] = {Data(formatText(
        "FETCH (UID 1 BODY[HEADER.FIELDS (\"DATE\")] {%d}\r\n%@ RFC822.SIZE 300)\r\n", block.size(), block))};
    const auto classic = parseMessageCacheInfoResponse(sizeFirst, kClassic);
    ASSERT_TRUE(classic.has_value());
    EXPECT_EQ(classic->size, 300u);
    EXPECT_EQ(classic->envelope.textForKey("from"), "a@b");
    EXPECT_EQ(classic->envelope.textForKey("subject"), "é");
    EXPECT_TRUE(classic->envelope.find("date"));
    for (const auto* texts : {&sizeFirst, &sizeLast}) {
        const auto standard = parseMessageCacheInfoResponse(*texts, kStandard);
        ASSERT_TRUE(standard.has_value());
        EXPECT_EQ(standard->size, 300u);
        EXPECT_EQ(standard->envelope.textForKey("subject"), "é");
    }
}

TEST(ImapListings, BecomeATree) {
    const auto tree = [](std::initializer_list<std::string_view> lines, MailDialect dialect) {
        PropertyList found = PropertyList::Dictionary();
        for (const auto line : lines)
            if (const auto mailbox = parseListLine(Data::copyOf(line), dialect))
                addToTree(found, *mailbox, mailbox->separator.value_or(""));
        return found;
    };
    const std::initializer_list<std::string_view> both = {R"((\Noselect) "/" foo/)",
                                                          R"((\HasChildren \Marked) "/" "a")", R"(() "/" a/b)"};
    for (const auto dialect : {kClassic, kStandard}) {
        const auto found = tree(both, dialect);
        EXPECT_EQ(found.dictionary().size(), 1u);
        EXPECT_THAT(found["a"][IMAPMailboxAttributes].strings(), ElementsAre("\\haschildren", "\\marked"));
        EXPECT_TRUE(found["a"][IMAPMailboxChildren]["b"][IMAPMailboxChildren].get<PropertyList::Dictionary>());
        EXPECT_EQ(tree({R"((\HasNoChildren) NIL INBOX)"}, dialect).dictionary().begin()->first, "INBOX");
        std::string deep = "() \"/\" a";
        for (int i = 0; i < 100'000; ++i) deep += "/a";
        EXPECT_TRUE(tree({deep}, dialect).dictionary().empty());
    }
    EXPECT_EQ(tree({"() \"\\\\\" \"a\\\"b\\\\&APw-\""}, kStandard)["a\"b"][IMAPMailboxChildren]
                  .dictionary()
                  .begin()
                  ->first,
              "ü");
    EXPECT_EQ(tree({"() \"/\" {2}\r\nab"}, kStandard).dictionary().begin()->first, "ab");
}

}  // namespace
}  // namespace lorvale
