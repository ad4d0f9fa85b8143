#include "lorvale/toolkit/retrieval/sentence_parser.h"

#include <gmock/gmock.h>

#include <sstream>

#include "tests/support/FailureText.h"
#include "tests/support/RealMessages.h"
#include "tests/support/TestSupport.h"

namespace brindle::testing {
namespace {

using Lines = std::vector<std::string>;
using lorvale::testing::sourceFolder;

std::string abbreviations() {
    return (sourceFolder() / "resources/EnglishAbbreviations").string();
}

struct Sentence {
    std::string text;  // without blanks at its ends, and with one for several
    std::uint32_t group;
};

/// All sentences; also checks what is true of any text.
std::vector<Sentence> sentencesOf(std::string text, const std::string& list, bool upper = true,
                                  bool removeReturns = true) {
    IAANSISentenceParser parser(text, list.c_str(), removeReturns);
    parser.SetRequiredUpper(upper);
    std::vector<Sentence> sentences;
    std::uint32_t number = 0, last = 0;
    while (const auto extent = parser.GetNextExtent()) {
        EXPECT_EQ(extent->GetExtentNumber(), ++number);
        EXPECT_GE(extent->GetOffset(), last);
        EXPECT_EQ(parser.GetBytesLeft(), text.size() - extent->GetOffset() - extent->GetLength());
        for (; last < extent->GetOffset(); ++last) EXPECT_TRUE(std::isspace(text[last])) << last;
        last += extent->GetLength();
        std::istringstream words(extent->GetExtent());
        std::string line;
        for (std::string word; words >> word;) line += (line.empty() ? "" : " ") + word;
        sentences.push_back({line, extent->GetGroupNumber()});
    }
    EXPECT_TRUE(parser.IsFinished());
    return sentences;
}

Lines textsOf(const std::vector<Sentence>& sentences) {
    Lines texts;
    for (const auto& sentence : sentences) texts.push_back(sentence.text);
    return texts;
}

TEST(SentenceParser, EveryRuleHasItsCase) {
    const struct {
        const char* why;
        const char* text;
        Lines sentences;
    } rows[] = {
        {"an abbreviation", "See Dr. Smith. He is in.", {"See Dr. Smith.", "He is in."}},
        {"two of them", "See Prof. Dr. Smith.", {"See Prof. Dr. Smith."}},
        {"one behind a parenthesis", "She (Dr. Ito) left.", {"She (Dr. Ito) left."}},
        {"one that begins a line", "The good\nDr. Smith came.", {"The good Dr. Smith came."}},
        {"five letters at the start", "Thurs. Meetings moved.", {"Thurs. Meetings moved."}},
        {"five letters elsewhere", "See thurs. Meetings moved.", {"See thurs.", "Meetings moved."}},
        {"a word that is none", "See fog. Smith came.", {"See fog.", "Smith came."}},
        {"an initial", "J. Smith came.", {"J. Smith came."}},
        {"an initial further on", "He saw J. R. Smith. Then", {"He saw J. R. Smith.", "Then"}},
        {"a letter with letters before it", "Plan IV. Smith came.", {"Plan IV.", "Smith came."}},
        {"a number", "It cost 3.14 in all. Ok", {"It cost 3.14 in all.", "Ok"}},
        {"no capital follows", "Fish, meat etc. are sold. 3 men", {"Fish, meat etc. are sold. 3 men"}},
        {"two blanks decide", "Dr.  Smith. and", {"Dr.", "Smith. and"}},
        {"a blank and a line break do not", "made. \nand", {"made. and"}},
        {"two line breaks do", "made.\n\nand", {"made.", "and"}},
        {"a run of stops", "Wait... what? Yes", {"Wait...", "what?", "Yes"}},
        {"a quote behind a mark", "\"Go!\" he said.", {"\"Go!\"", "he said."}},
        {"a quote behind a stop", "\"Go.\" said he", {"\"Go.\"", "said he"}},
        {"a quote begins", "He went. 'tis so", {"He went.", "'tis so"}},
        {"a hyphen begins", "He went. - so", {"He went.", "- so"}},
        {"a heading and a list", "Fish\n\xA5 cod\n\xA5 eel", {"Fish", "\xA5 cod", "\xA5 eel"}},
        {"a line of hyphens", "bye\n-- \njo", {"bye", "-- jo"}},
        {"one hyphen is none", "bye\n- jo", {"bye - jo"}},
        {"an empty line", "Fish\n\nand meat", {"Fish", "and meat"}},
        {"each mark ends one", "What?!", {"What?", "!"}},
        {"no full stop", "no end", {"no end"}},
        {"blanks alone", " \n\t ", {}},
        {"nothing", "", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(textsOf(sentencesOf(row.text, abbreviations())), row.sentences);
    }
    EXPECT_EQ(textsOf(sentencesOf("See Dr. Smith.", "")), (Lines{"See Dr.", "Smith."}));
    EXPECT_EQ(textsOf(sentencesOf("One. two, dr. three.", abbreviations(), false)),
              (Lines{"One.", "two, dr. three."}));
    EXPECT_EQ(failureOf([] { sentencesOf("", "/nowhere"); }), "QFLT file not opened successfully");
}

TEST(SentenceParser, ParagraphsAreNumbered) {
    const std::pair<const char*, std::vector<std::uint32_t>> rows[] = {
        {"Aa.\nBb.\n\nCc.\n\n\n\nDd.", {0, 0, 1, 2}},
        {"\n\nAa.", {1}},
        {"\nAa.", {0}},
        {"Aa.\n \n Bb.", {0, 1}},
        {"Aa.\n Bb.", {0, 0}},
        {"Aa.\n\tBb. Cc?\n\tDd.", {0, 0, 0, 1}},
    };
    for (const auto& [text, groups] : rows) {
        std::vector<std::uint32_t> found;
        for (const auto& sentence : sentencesOf(text, "")) found.push_back(sentence.group);
        EXPECT_EQ(found, groups) << text;
    }
}

TEST(SentenceParser, ProseIsCutAsByHandHoweverItsLinesAreBroken) {
    std::istringstream list(lorvale::testing::readFile(sourceFolder() / "tests/data/sentences/prose.txt"));
    std::vector<Sentence> expected;
    std::uint32_t paragraph = 0;
    for (std::string line; std::getline(list, line);)
        line.empty() ? static_cast<void>(++paragraph) : expected.push_back({line, paragraph});
    for (std::size_t width = 20; width < 100; ++width) {
        std::string page;
        std::size_t column = 0;
        paragraph = 0;
        for (const auto& [text, group] : expected) {
            if (group != paragraph) page += "\n\n", paragraph = group, column = 0;
            std::istringstream words(text);
            for (std::string word; words >> word;) {
                if (column > 0) page += column + 1 + word.size() > width ? (column = 0, '\n') : ' ';
                page += word;
                column += word.size() + 1;
            }
        }
        const auto found = sentencesOf(page, abbreviations());
        for (std::size_t i = 0; i < std::min(found.size(), expected.size()); ++i) {
            ASSERT_EQ(found[i].text, expected[i].text) << width;
            ASSERT_EQ(found[i].group, expected[i].group) << found[i].text;
        }
        ASSERT_EQ(found.size(), expected.size()) << width;
    }
}

TEST(SentenceParser, BufferIsLeftAloneWhereReturnsAreKept) {
    std::string text = "One\ntwo. \nThree";
    const std::string before = text;
    IAANSISentenceParser keeping(text, nullptr, false);
    while (keeping.GetNextExtent() != nullptr) {
    }
    EXPECT_EQ(text, before);
    IAANSISentenceParser removing(text);
    float percent = 0;
    EXPECT_EQ(removing.GetNextExtent([&](float done) { return percent = done, true; })->View(), "One two.  ");
    EXPECT_FLOAT_EQ(percent, 100.0f * 10 / 15);
    EXPECT_TRUE(removing.IsCancelled());
    removing.SetBuffer(text);  // begins anew, as it is not finished
    EXPECT_EQ(removing.GetNextExtent()->GetExtentNumber(), 1u);
    EXPECT_FALSE(removing.IsCancelled());
    while (removing.GetNextExtent() != nullptr) {
    }
    removing.SetBuffer(text);
    EXPECT_EQ(removing.GetNextExtent(), nullptr);
}

TEST(SentenceParser, RealMailIsCutAsByHand) {
    const std::string text = realMessageBody("<AMEPKEBLDJJCCDEJHAMIKELBFIAA.ejw@cse.ucsc.edu>");
    if (text.empty()) GTEST_SKIP() << "no shared mail";
    const char* const beginnings[] = {"Opening arguments are",
                                      "....",
                                      "To heighten public",
                                      "The van, which",
                                      "--------",
                                      "I had the opportunity",
                                      "It's a neat",
                                      "Take an SUV, put",
                                      "Voila -- people",
                                      "Quite literally",
                                      "Total fixed cost",
                                      "One of the",
                                      "This should be",
                                      "- Jim"};
    const auto found = sentencesOf(text.substr(text.find("Opening")), abbreviations());
    ASSERT_EQ(found.size(), std::size(beginnings));
    for (std::size_t i = 0; i < found.size(); ++i)
        EXPECT_THAT(found[i].text, ::testing::StartsWith(beginnings[i]));
}

}  // namespace
}  // namespace brindle::testing
