#include "lorvale/values/property_list.h"

#include <gmock/gmock.h>
#include <plist/plist.h>

#include <random>

#include "base/values/PropertyListGuard.h"
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
    list.set("Before", Date(-900'000'000));
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

TEST(PropertyList, ReadsTheBinaryFormOfTheSame) {
    const auto xml = example().xml();
    plist_t node = nullptr;
    ::plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &node);
    char* binary = nullptr;
    std::uint32_t size = 0;
    ::plist_to_bin(node, &binary, &size);
    ::plist_free(node);
    const std::string bytes(binary, size);
    ::plist_to_bin_free(binary);
    EXPECT_EQ(parse(bytes), example());
    // Cut anywhere or with any byte changed, it is refused or read, and nothing else happens.
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_EQ(parse(bytes.substr(0, length)), std::nullopt);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        for (const int flip : {0x01, 0x10, 0x80, 0xFF}) {
            auto damaged = bytes;
            damaged[i] = static_cast<char>(damaged[i] ^ flip);
            parse(damaged);
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
    EXPECT_EQ(PropertyList(1e300).integer(), INT64_MAX);
    EXPECT_EQ(PropertyList("1e3x").integer(5), 5);
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
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(parse(row.text), std::nullopt);
    }
}

std::string nested(std::size_t depth) {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) text += "<array>";
    text += "<!-- </array> --><![CDATA[</array>]]>";
    for (std::size_t i = 0; i < depth; ++i) text += "</array>";
    return text;
}

TEST(PropertyList, NestsOnlyAsFarAsTheStackReaches) {
    EXPECT_TRUE(parse(document("<array>" + std::string("<array/>") + "</array>")));
    EXPECT_EQ(parse(document(nested(300'000))), std::nullopt);
    constexpr PropertyListLimits kLimits;
    EXPECT_TRUE(xmlPropertyListKeepsWithin(document(nested(kLimits.depth)), kLimits));
    EXPECT_FALSE(xmlPropertyListKeepsWithin(document(nested(kLimits.depth + 2)), kLimits));
}

/// A binary list of arrays, each holding the next one `width` times.
std::string chainOfArrays(int length, int width) {
    std::string bytes = "bplist00";
    std::string table;
    for (int i = 0; i < length; ++i) {
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
    for (const std::size_t number : {static_cast<std::size_t>(length), std::size_t{0}, offset})
        for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
    return bytes;
}

TEST(PropertyList, ASmallFileThatUnfoldsToALargeOneIsRefused) {
    EXPECT_TRUE(parse(chainOfArrays(10, 2)));
    EXPECT_EQ(parse(chainOfArrays(30, 2)), std::nullopt) << "a thousand million arrays";
    EXPECT_TRUE(parse(chainOfArrays(100, 1)));
    EXPECT_EQ(parse(chainOfArrays(101, 1)), std::nullopt) << "too deep";
    auto circle = chainOfArrays(2, 1);
    circle[9] = circle[10] = 0;  // the first array holds itself
    EXPECT_EQ(parse(circle), std::nullopt);
}

}  // namespace
}  // namespace lorvale
