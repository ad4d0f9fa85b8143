#include "lorvale/values/property_list.h"

#include <gmock/gmock.h>

#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using lorvale::testing::ExactCopy;
using ::testing::ElementsAre;

std::optional<PropertyList> parse(std::string_view text) {
    const ExactCopy exact(text);
    return PropertyList::parse(Data::ofStatic(exact));
}

std::string document(std::string_view content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + std::string(content) +
           "</plist>\n";
}

PropertyList example() {
    PropertyList list;
    list.set("Title", "Größe <&> \"1\"");
    list.set("Count", -5);
    list.set("Large", std::int64_t{1} << 62);
    list.set("Ratio", 0.1);
    list.set("Small", 1e-300);
    list.set("On", true);
    list.set("Bytes", Data::copyOf(std::string_view("\0\xFF\n", 3)));
    list.set("Since", Date(1'030'013'183));
    for (const auto seconds :
         {-900'000'000LL, -1'300'000'000LL, 3'200'000'000LL, -65'000'000'000LL, 250'000'000'000LL})
        list.set("At " + std::to_string(seconds), Date(seconds));  // before 1932, after 2069, before 0, in 9892
    PropertyList nested;
    for (int i = 0; i < 3; ++i)
        nested.append(PropertyList::Array{"x", i, PropertyList::Dictionary{{"k", false}}});
    list.set("Nested", nested);
    list.set("Empty", "");
    list.set("No entries", PropertyList::Array());
    return list;
}

TEST(PropertyList, ReadsBackWhatItWrites) {
    const auto list = example();
    const auto xml = list.xml();
    EXPECT_EQ(xml.find("http"), std::string::npos) << "nothing that a reader might fetch";
    EXPECT_THAT(xml, ::testing::StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"));
    const auto back = parse(xml);
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, list);
    EXPECT_EQ(back->xml(), xml);
}

TEST(PropertyList, KeepsAnyBytesOfItsTexts) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
    for (const auto& text :
         {all, std::string("\r\n]]> \xEF\xBF\xBE \U0010F6FF\U0010F700\U0010F77F\U0010F7FF\U0010F800"),
          std::string("caf\xE9\xF4\x8F\x9C"), std::string(" ")}) {
        const PropertyList list = PropertyList::Dictionary{{text, PropertyList::Array{text, ""}}};
        EXPECT_EQ(parse(list.xml()), list);
    }
    EXPECT_THAT(parse(document("<string>a\x1B$B\xE9</string>")), PropertyList("a\x1B$B\xE9"))
        << "as writers that do not care leave them";
}

TEST(PropertyList, WhatIsWrittenCanBeReadAgain) {
    PropertyList queue;
    for (int i = 0; i < 14; ++i) queue.append(Data(std::string(1 << 20, static_cast<char>(i))));
    queue.append(std::string(12 << 20, 'a'));
    queue.append(std::string(1 << 20, '&'));
    for (int i = 0; i < 50'000; ++i) queue.append(i);
    EXPECT_TRUE(parse(queue.xml()) == queue);

    const testing::LogCapture log;
    PropertyList tower;
    for (std::size_t i = 0; i < PropertyList::kMostLevels; ++i) tower = PropertyList::Array{std::move(tower)};
    EXPECT_EQ(parse(tower.xml())->xml(), tower.xml());
    tower = PropertyList::Dictionary{{"k", tower}};
    EXPECT_EQ(tower.xml(), "");
    EXPECT_EQ(log.lines().size(), 1u) << "refused aloud";
}

/// The entries of tests/data/property_list.bin, which libplist wrote.
PropertyList binaryExample() {
    PropertyList list =
        PropertyList::Dictionary{{"Title", "Größe <&>"}, {"b", Data::copyOf(std::string_view("\0\xFF\n", 3))}};
    list.set("a", PropertyList::Array{"x", 1, PropertyList::Dictionary{{"k", PropertyList::Array()}}});
    list.set("big", std::int64_t{1} << 62);
    list.set("d", Date(1'030'013'183));
    list.set("e", "");
    list.set("n", -5);
    list.set("off", false);
    list.set("on", true);
    list.set("r", 0.1);
    return list;
}

TEST(PropertyList, ReadsTheBinaryForm) {
    const auto bytes = testing::readFile(testing::sourceFolder() / "tests/data/property_list.bin");
    EXPECT_EQ(parse(bytes), binaryExample());
    // Cut anywhere or with any byte changed, it is refused or read, and nothing else happens.
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_EQ(parse(bytes.substr(0, length)), std::nullopt);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        for (const int flip : {0x01, 0x10, 0x80, 0xFF}) {
            auto damaged = bytes;
            damaged[i] = static_cast<char>(damaged[i] ^ flip);
            static_cast<void>(parse(damaged));
        }
}

/// A binary list of one object.
std::string binary(std::string_view object) {
    const std::string trailer("\x08\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 32);
    return "bplist00" + std::string(object) + trailer + static_cast<char>(8 + object.size());
}

TEST(PropertyList, ReadsEachKindOfBinaryObject) {
    using namespace std::string_literals;
    const struct {
        const char* why;
        std::string object;
        std::optional<PropertyList> value;
    } rows[] = {
        {"a small number has no sign", "\x10\xFF"s, 255},
        {"a large one has", "\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE"s, -2},
        {"above all others", "\x14\0\0\0\0\0\0\0\0\xFF\0\0\0\0\0\0\0"s, INT64_MAX},
        {"below", "\x14\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F\0\0\0\0\0\0\0"s, INT64_MIN},
        {"float", "\x22\xC0\x20\0\0"s, -2.5},
        {"date of 1900", "\x33\xC1\xE7\xBF\x48\xE0\0\0\0"s, Date(-2'208'988'800)},
        {"no date", "\x33\x7F\xF8\0\0\0\0\0\0"s, std::nullopt},
        {"date beyond the calendar", "\x33\x42\x70\0\0\0\0\0\0"s, std::nullopt},
        {"a mark of order is text", "\x62\xFF\xFE\0a"s, "\uFFFEa"},
        {"text behind the end", "\x5F\x10\xC8"s, std::nullopt},
        {"number as a key", "\xD1\0\0"s, std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(parse(binary(row.object)), row.value);
    }
}

TEST(PropertyList, AnswersSomethingUsefulForMissingAndOddValues) {
    const auto list =
        *parse(document("<dict><key>n</key><string> 12 </string><key>yes</key><string>yes</string>"
                        "<key>a</key><array><string>x</string><integer>3</integer><true/></array>"
                        "<key>r</key><real>-2.75</real><key>f</key><false/></dict>"));
    EXPECT_EQ(list["n"].integer(), 12);
    EXPECT_TRUE(list["n"].boolean());
    EXPECT_EQ(list["n"].real(), 12.0);
    EXPECT_EQ(list["yes"].integer(7), 1);
    EXPECT_EQ(list["r"].integer(), -2);
    EXPECT_EQ(list["r"].string(), "-2.75");
    EXPECT_EQ(list["f"].string(), "NO");
    EXPECT_THAT(list["a"].strings(), ElementsAre("x", "3"));
    EXPECT_EQ(list["a"][9]["deeper"][0].integer(42), 42);
    EXPECT_EQ(list["a"].data(), std::nullopt);
    const PropertyList since(Date(1'030'013'183, 7200));
    EXPECT_EQ(since.string(), "2002-08-22T10:46:23Z");
    EXPECT_THAT(PropertyList(PropertyList::Array{since}).strings(), ElementsAre("2002-08-22T10:46:23Z"));
    EXPECT_EQ(PropertyList(since.string()).date(), since.date());
    EXPECT_EQ(PropertyList(1e300).integer(), INT64_MAX);
    EXPECT_EQ(PropertyList("1e3x").integer(5), 5);
}

static_assert(!std::is_constructible_v<PropertyList, int*> &&
                  !std::is_constructible_v<PropertyList, const unsigned char*> &&
                  !std::is_constructible_v<PropertyList, const PropertyList*>,
              "a pointer is no truth value");

TEST(PropertyList, MovedFromValuesAndNullPointersAreNull) {
    PropertyList truth(true), other;
    other = std::move(truth);
    EXPECT_TRUE(truth.isNull() && other.boolean());
    auto& same = other;
    other = std::move(same);
    EXPECT_TRUE(other.boolean());
    const char* const nothing = nullptr;
    EXPECT_TRUE(PropertyList(nothing).isNull());
}

TEST(PropertyList, TakesThePlaceOfWhatItIsAPartOf) {
    PropertyList list(PropertyList::Array{PropertyList(PropertyList::Dictionary{{"below", "deep"}})});
    list = list.array()[0];
    list = list["below"];
    EXPECT_EQ(list.string(), "deep");
    const auto& same = list;
    list = same;
    EXPECT_EQ(list.string(), "deep");
}

TEST(PropertyList, ChangesInPlace) {
    PropertyList list("text");
    list.set("k", 1);
    EXPECT_EQ(list.dictionary().size(), 1u) << "another kind becomes a dictionary";
    list.set("k", PropertyList());
    EXPECT_TRUE(list.dictionary().empty()) << "nothing removes";
    list.set("", PropertyList::Array{PropertyList(), 1});
    EXPECT_EQ((*parse(list.xml()))[""].array().size(), 1u) << "also in an array, and under the empty key";
    EXPECT_EQ(PropertyList().xml(), "");
}

TEST(PropertyList, RefusesWhatIsNone) {
    const struct {
        const char* why;
        std::string text;
    } rows[] = {
        {"empty", ""},
        {"blank", " \n"},
        {"cut off", document("<dict><key>a</key>").substr(0, 70)},
        {"old form", "{ a = b; }"},
        {"not closed", document("<array><string>x</array>")},
        {"definitions of its own", "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><string>&a;</string></plist>"},
        {"a tag in a tag", document("<array a=\"</array>\"></array>")},
        {"closed before opened", "</array><plist><true/></plist>"},
        {"short binary", "bplist00"},
        {"an entity of its own", document("<string>&a;</string>")},
        {"an attribute's definition",
         "<!DOCTYPE plist [<!ATTLIST plist a (b|c) \"b\">]>" + document("<true/>")},
        {"two values", document("<true/><true/>")},
        {"text between values", document("<array>x<true/></array>")},
        {"value without a key", document("<dict><true/></dict>")},
        {"key without a value", document("<dict><key>k</key></dict>")},
        {"two keys", document("<dict><key>k</key><key>l</key><true/></dict>")},
        {"key in an array", document("<array><key>k</key></array>")},
        {"tag in a text", document("<string><true/></string>")},
        {"unknown tag", document("<text/>")},
        {"no number", document("<integer>12x</integer>")},
        {"no day", document("<date>2002-02-29T10:46:23Z</date>")},
        {"no base64", document("<data>AA%=</data>")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(parse(row.text), std::nullopt);
    }
}

std::string nested(std::size_t depth) {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) text += "<array>";
    text += "<!-- </array> -->";
    for (std::size_t i = 0; i < depth; ++i) text += "</array>";
    return text;
}

TEST(PropertyList, NestsOnlyAsFarAsTheStackReaches) {
    EXPECT_TRUE(parse(document("<array>" + std::string("<array/>") + "</array>")));
    EXPECT_EQ(parse(document(nested(300'000))), std::nullopt);
    EXPECT_TRUE(parse(document(nested(PropertyList::kMostLevels))));
    EXPECT_EQ(parse(document(nested(PropertyList::kMostLevels + 1))), std::nullopt);
}

/// A binary list of arrays, each holding the next one `width` times.
std::string chainOfArrays(std::size_t length, int width) {
    std::string bytes = "bplist00";
    std::string table;
    for (std::size_t i = 0; i < length; ++i) {
        table += static_cast<char>(bytes.size() >> 8);
        table += static_cast<char>(bytes.size());
        const bool last = i == length - 1;
        bytes += static_cast<char>(0xA0 | (last ? 0 : width));
        for (int member = 0; !last && member < width; ++member) {
            bytes += static_cast<char>((i + 1) >> 8);
            bytes += static_cast<char>(i + 1);
        }
    }
    const auto offset = bytes.size();
    bytes += table + std::string(6, '\0') + "\x02\x02";
    for (const std::size_t number : {length, std::size_t{0}, offset})
        for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
    return bytes;
}

TEST(PropertyList, ASmallFileThatUnfoldsToALargeOneIsRefused) {
    EXPECT_TRUE(parse(chainOfArrays(10, 2)));
    EXPECT_EQ(parse(chainOfArrays(30, 2)), std::nullopt) << "a thousand million arrays";
    EXPECT_TRUE(parse(chainOfArrays(PropertyList::kMostLevels, 1)));
    EXPECT_EQ(parse(chainOfArrays(PropertyList::kMostLevels + 1, 1)), std::nullopt) << "too deep";
    auto circle = chainOfArrays(2, 1);
    circle[9] = circle[10] = 0;  // the first array holds itself
    EXPECT_EQ(parse(circle), std::nullopt);
}

}  // namespace
}  // namespace lorvale
