#include "lorvale/search/unicode_analysis.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "lorvale/toolkit/corpus.h"
#include "lorvale/toolkit/retrieval.h"
#include "lorvale/toolkit/storage.h"
#include "tests/support/IndexFixture.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {
namespace {

const std::string kStopwords = sourceFolder() / "resources/EnglishStopwords";
const std::string kStems = sourceFolder() / "resources/EnglishSubstitutions";

std::vector<std::string> termsOf(const brindle::IAAnalysis& analysis, const std::string& text) {
    std::vector<std::string> terms;
    const auto stream = analysis.MakeTokenStream(std::make_unique<brindle::StringDocText>(text));
    for (brindle::IATermView next; stream->NextTerm(next);) terms.emplace_back(next.View());
    return terms;
}

std::string termsOf(const std::string& text) {
    static const UnicodeAnalysis analysis(kStopwords.c_str(), kStems.c_str());
    std::string all;
    for (const auto& term : termsOf(analysis, text)) all += (all.empty() ? "" : " ") + term;
    return all;
}

std::string repeated(const std::string& text, std::size_t times) {
    std::string all;
    while (times-- > 0) all += text;
    return all;
}

TEST(UnicodeAnalysis, FindsWordsInAnyScript) {
    const std::string mark = "\u0301";
    const struct {
        const char* why;
        std::string text, terms;
    } rows[] = {
        {"case and accents go", "müller Muller MÜLLER mu\u0308ller ｍüller",
         "muller muller muller muller muller"},
        {"words that become ASCII are English ones", "naïve cafés; Müller's Été", "naiv cafe muller ete"},
        {"the apostrophe of word processors", "don’t isn’t Anna’s rock’n’roll", "anna rock'n'roll"},
        {"strokes and joined letters", "Łódź Søren Æther Œuvre Straße ﬁsh",
         "lodz soren aether oeuvr strass fish"},
        {"other alphabets", "Ёлка ΌΣΟΣ ὅσος שָׁלוֹם", "елка οσοσ οσοσ שלום"},
        {"marks between words", "“Müller”—Mayer…über,alles", "muller mayer uber all"},
        {"marks inside words", "3.14€ 1,000–2,000 z.B.ähnlich", "3.14 1,000 2,000 z.b.ahnlich"},
        {"pairs of Han and Kana", "日本語、東京タワー", "日本 本語 東京 京タ タワ ワー"},
        {"one character alone", "猫 と ﾈｺ 猫。", "猫 と ネコ 猫"},
        {"narrow and wide forms", "ｶﾞｷﾞ ヿ東京 ＡＢＣ", "ガギ コト ト東 東京 abc"},
        {"between letters of another kind", "今日Lorvaleを使う", "今日 lorvale を使 使う"},
        {"Thai, each with its marks", "ที่นั่ง", "ที่นั่ นั่ง"},
        {"Indian vowels stay", "हिन्दी", "हिन्दी"},
        {"Korean has blanks", "한국어 검색", "한국어 검색"},
        {"bytes that are no UTF-8",
         "ab\xFF"
         "c\xC3 \xE6\x97 d\xC3\xA9",
         "ab c d"
         "e"},
        {"no words", "… — \u200D \xFF" + mark, ""},
        {"what is not shown", "Wör\u00ADter \uFEFFMüh\u200Bsal", "worter muh sal"},
        {"long words are cut between characters", repeated("ж", 70) + " ж", repeated("ж", 64) + " ж"},
        {"far longer ones passed over", repeated("ж", 9999) + " я", repeated("ж", 64) + " я"},
        {"long ones of ASCII, too", repeated("x", 5000) + "é y", repeated("x", 129) + " e y"},
        {"a Katakana word longer than any window", repeated("アイ", 600), repeated("アイ イア ", 599) + "アイ"},
        {"a letter with very many marks", "e" + repeated(mark, 3000) + "x a", "e x"},
        {"sentences without a blank", repeated("abc「é」", 1000), repeated("abc e ", 999) + "abc e"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(termsOf(row.text), row.terms);
    }
}

TEST(UnicodeAnalysis, GivesTheTermsOfEnglishForASCII) {
    const brindle::EnglishAnalysis english(kStopwords.c_str(), kStems.c_str());
    const UnicodeAnalysis unicode(kStopwords.c_str(), kStems.c_str());
    std::string text = "Went to O'Hara's (mail-box, 1,000.50) at a.b.c,d; `quoted' __snake_case__ x'. ";
    for (int i = 1; i < 3000; ++i) text += static_cast<char>(1 + i * i % 127);
    text += repeated("Running.", 300);
    EXPECT_EQ(termsOf(unicode, text), termsOf(english, text));
    EXPECT_EQ(termsOf(unicode, text), termsOf(english, text)) << "now that it knows the words";
}

class UnicodeSearch : public ::testing::Test {
protected:
    std::string found(const std::string& query) {
        std::string names;
        for (const auto& hit : accessor->RankedSearchBoolean(query, 10))
            names += static_cast<const brindle::StringDoc&>(*hit->GetDocument()).View();
        std::ranges::sort(names);
        return names;
    }
    void SetUp() override {
        texts = {{"a", "Grüße aus Müllers Küche: 東京都の天気"},
                 {"b", "Greetings from Mr. Muller in 東京"},
                 {"c", "京都 und the weather 天気 there"},
                 {"d", "東京 and 京都, one after the other"}};
        storage = brindle::IAMakeStorage(
            std::make_unique<brindle::testing::MemoryStoreStream>(std::make_shared<brindle::testing::Bytes>()));
        storage->Initialize();
        index = std::make_unique<brindle::InvertedIndex>(
            storage.get(), std::make_unique<brindle::testing::TextsCorpus>(texts),
            std::make_unique<UnicodeAnalysis>(kStopwords.c_str(), kStems.c_str()));
        index->Initialize();
        for (const auto& [name, text] : texts) index->AddDoc(std::make_unique<brindle::StringDoc>(name));
        index->Flush();
        accessor = std::make_unique<brindle::InvertedAccessor>(index.get());
        accessor->Initialize();
    }
    brindle::testing::Texts texts;
    std::unique_ptr<brindle::IAStorage> storage;
    std::unique_ptr<brindle::InvertedIndex> index;
    std::unique_ptr<brindle::InvertedAccessor> accessor;
};

TEST_F(UnicodeSearch, AnswersBooleanQueriesInAnyScript) {
    const struct {
        const char* why;
        std::string query, found;
    } rows[] = {
        {"a letter above 0x7F behind a blank", "küche & müller", "a"},
        {"in any case, with accents or without", "MÜLLER", "ab"},
        {"two characters", "天気", "ac"},
        {"a word of more needs all of its pairs", "東京都", "ad"},
        {"each such document once", "天気 ! 東京都", "c"},
        {"a pair that no document has", "東京市 | greetings", "b"},
        {"a pair that is elsewhere only", "東京都の & 京都", "a"},
        {"not in this one", "muller ! küche", "b"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(found(row.query), row.found);
    }
}

}  // namespace
}  // namespace lorvale::testing
