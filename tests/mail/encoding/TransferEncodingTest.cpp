#include <gmock/gmock.h>

#include <random>

#include "lorvale/mime.h"
#include "lorvale/values/text.h"
#include "mail/encoding/Base64Kernels.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PlainCodecs.h"
#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

/// Gives the codec a block of just the size of the text, so that the sanitizer sees one byte too many.
template <Data (*codec)(const Data&)>
std::string run(std::string_view in) {
    const ExactCopy exact(in);
    return codec(Data::ofStatic(exact)).toString();
}

/// Random pieces, from the seed that a failure prints, put together to inputs that look like what the codecs
/// meet.
class RandomText {
public:
    explicit RandomText(std::uint32_t seed) : _random(seed) {}
    std::size_t below(std::size_t limit) { return _random() % limit; }
    std::string bytes(std::size_t size) {
        std::string text(size, '\0');
        for (auto& c : text) c = static_cast<char>(_random());
        return text;
    }
    std::string of(std::span<const std::string_view> pieces, std::size_t count) {
        std::string text;
        while (count-- > 0) text += pieces[below(pieces.size())];
        return text;
    }

private:
    std::mt19937 _random;
};

TEST(Base64, ReadsOddInput) {
    const TextRow rows[] = {
        {"line ends of both kinds, and blanks", "QU\nJD\r\nRE \tVG\f", "ABCDEF"},
        {"bytes outside the alphabet", "*Q-U_J.D!", "ABC"},
        {"eighth bit set", "\xD1\xD5JD", "ABC"},
        {"also of a pad", "QQ\xBD\xBD", "A"},
        {"an equals sign in the middle is a zero", "A=BC", std::string_view("\0\0\x42", 3)},
        {"only the last equals signs count", "Q=U=", std::string_view("@\x05", 2)},
        {"pads count across white space", "QQ= =", "A"},
        {"and across groups", "QQ======", std::string_view("A\0", 2)},
        {"but not across a byte that is skipped", "QUE=*", "AA"},
        {"which forgets them", "QQ=*=", std::string_view("A\0", 2)},
    };
    expectRows(run<decodeBase64>, rows);
}

TEST(Base64, WritesFullLinesWithOneLineEnd) {
    EXPECT_EQ(run<encodeBase64>("A"), "QQ==\n");
    EXPECT_EQ(run<encodeBase64>(std::string(57, '\0')), std::string(76, 'A') + "\n");
    EXPECT_EQ(run<encodeBase64>(std::string(58, '\0')), std::string(76, 'A') + "\nAA==\n");
}

TEST(Base64, EveryKernelKeepsThePlainRules) {
    RandomText random(20020812);
    const std::size_t lengths[] = {76, 76, 72, 64, 60, 32, 4096, 100'000};
    const std::string_view odd[] = {"=", "==", "\n", "\r\n", " ", "\xC1", "-", "A", "AB", "\x80", "\n\n"};
    for (int round = 0; round < 3000; ++round) {
        SCOPED_TRACE(round);
        const auto bytes = random.bytes(random.below(round % 100 == 0 ? 40'000 : 600));
        const auto plain = plainEncodeBase64(bytes);
        // The same symbols on lines of another length, with something odd put in here and there.
        std::string text;
        const auto length =
            random.below(2) == 0 ? 1 + random.below(150) : lengths[random.below(std::size(lengths))];
        std::size_t column = 0;
        for (const char c : plain) {
            if (c != '\n') text += c, ++column;
            if (column == length) text += '\n', column = 0;
        }
        for (auto count = random.below(4); count > 0; --count)
            text.insert(random.below(text.size() + 1), odd[random.below(std::size(odd))]);
        for (const auto& kernels : base64Kernels()) {
            SCOPED_TRACE(kernels.name);
            const ExactCopy exactBytes(bytes), exactPlain(plain), exactText(text);
            ASSERT_EQ(encodeBase64(Data::ofStatic(exactBytes), kernels).view(), plain);
            ByteBuffer back, decoded;
            appendDecodedBase64(back, exactPlain, kernels);
            ASSERT_EQ(back.view(), bytes);
            appendDecodedBase64(decoded, exactText, kernels);
            ASSERT_EQ(decoded.view(), plainDecodeBase64(text));
        }
    }
}

TEST(QuotedPrintable, ReadsOddInput) {
    const TextRow rows[] = {
        {"a bad digit counts as 255", "=G1=1G=\r\n", "\xF1\x0F\xEF"},
        {"eighth bit set on a digit", "=\xB4\xB1", "A"},
        {"trailing spaces go", "a  \nb\t\nc \t \n", "a\nb\t\nc \t\n"},
        {"but not encoded ones, nor before them", "a =20\n  \n", "a  \n\n"},
        {"soft line breaks, with spaces before their end", "a=\nb=  \nc =\n\nd", "abc \nd"},
        {"spaces behind a soft break are their own", "a =\n \nb", "a \nb"},
        {"an equals sign before spaces goes", "a=  b=  ", "a  b  "},
        {"and one at the end", "a=", "a"},
        {"or before the last byte", "a=4", "a4"},
        {"which does not keep spaces", "=A\n =\n", "\x9F "},
    };
    expectRows(run<decodeQuotedPrintable>, rows);
}

TEST(QuotedPrintable, WritesOddInput) {
    const auto x = [](std::size_t count) { return std::string(count, 'x'); };
    const std::pair<std::string, std::string> rows[] = {
        {"a", "a=\n"},
        {"a \nb\t\nc d\te", "a=20\nb=09\nc d\te=\n"},
        {"a ", "a=20=\n"},
        {"From me\nxFrom you\n", "=46rom me\nx=46rom you\n"},
        {"From ", "From=20=\n"},  // five bytes and no more
        // A word that does not fit moves to the next line as a whole.
        {x(60) + " " + x(13), x(60) + " =\n" + x(13) + "=\n"},
        {x(60) + " " + x(11), x(60) + " " + x(11) + "=\n"},
        // One that fits no line is cut behind column 73; its beginning counts as looked at already.
        {x(72) + "\n", x(72) + "\n"},
        {x(100) + "\n", "x=\n" + x(74) + "=\n" + x(25) + "\n"},
        {"a\n" + x(80), "a\n=\n" + x(74) + "=\n" + x(6) + "=\n"},
        // A tab goes to the next multiple of eight, and escapes count three.
        {x(70) + "\ty\n", x(70) + "\t=\ny\n"},
        {x(63) + "\ty\n", x(63) + "\ty\n"},
    };
    for (const auto& [in, out] : rows) EXPECT_EQ(run<encodeQuotedPrintable>(in), out) << in;
}

TEST(QuotedPrintable, FastPathsKeepThePlainRules) {
    using namespace std::string_view_literals;
    const auto prose = split("the |word|.\n|Fromage | and so on for a good while|\n", '|');
    const auto odd =
        split("From | |  | \n|\n\n|a\tb|F|incomprehensibilities |caf\xE9 |1+1=2|\t\n|\r\n|\0"sv, '|');
    const auto coded =
        split("=|=\n|= \n|=20| \n|  |=4|=\xC3x|\n|word|a|=  x|a longer stretch of plain text ", '|');
    RandomText random(19961104);
    for (int round = 0; round < 4000; ++round) {
        SCOPED_TRACE(round);
        const auto count = random.below(round % 100 == 0 ? 5000 : 80);
        auto text = round % 4 == 0 ? random.bytes(count) : random.of(prose, count);
        for (auto more = random.below(1 + count / 2); more > 0; more -= 1 + random.below(more))
            text.insert(random.below(text.size() + 1), odd[random.below(odd.size())]);
        const auto encoded = run<encodeQuotedPrintable>(text);
        ASSERT_EQ(encoded, plainEncodeQuotedPrintable(text));
        ASSERT_EQ(run<decodeQuotedPrintable>(encoded), text);
        const auto mixed = random.of(coded, count);
        ASSERT_EQ(run<decodeQuotedPrintable>(mixed), plainDecodeQuotedPrintable(mixed)) << mixed;
    }
}

std::string uuencoded(std::string_view bytes) {
    return uuencodedDataWithFile(Data::copyOf(bytes), "a b.txt", 0640).toString();
}

std::string uudecoded(std::string_view text, std::string* name = nullptr, int* mode = nullptr) {
    const ExactCopy exact(text);
    const auto data = uudecodedDataIntoFile(Data::ofStatic(exact), name, mode);
    return data ? data->toString() : "none";
}

TEST(Uuencode, WritesBackquotesForZeroAndReadsThemBack) {
    EXPECT_EQ(uuencoded(""), "begin 640 a b.txt\n`\nend\n");
    EXPECT_EQ(uuencoded(std::string_view("Cat\0", 4)), "begin 640 a b.txt\n$0V%T````\n`\nend\n");
    RandomText random(7);
    for (std::size_t size = 0; size < 200; ++size) {
        const auto bytes = random.bytes(size);
        std::string name;
        int mode = 0;
        EXPECT_EQ(uudecoded("Dear Anna,\n" + uuencoded(bytes), &name, &mode), bytes);
        EXPECT_EQ(name, "a b.txt");
        EXPECT_EQ(mode, 0640);
    }
}

TEST(Uuencode, ReadsOddInput) {
    const std::string zeros(42, '\0');
    const TextRow rows[] = {
        {"blanks for zero", "begin 644 x\n$0V%T    \n \nend\n", std::string_view("Cat\0", 4)},
        {"blanks lost at the line end", "begin 644 x\n$0V%T\n`\n", std::string_view("Cat\0", 4)},
        {"carriage returns and a checksum behind the line", "begin 644 x\r\n#0V%T\r\n#0V%TX\r\n`\r\n",
         "CatCat"},
        {"the end of the data reads as bytes of 0", "begin 644 x\n&0V%T", "Cat\x82\x08\x20"},
        {"a zero byte ends it", std::string_view("begin 644 x\n#0V%T\n\0#0V%T\n", 25), "Cat"},
        {"no blank needed at the very start", "beginning of x\n#0V%T\n", "Cat"},
        {"but later", "\nbeginning\nbegin 600 x\n#0V%T\n", "Cat"},
        {"an empty line has a length too", "begin 644 x\n\n`\n", zeros},
    };
    expectRows([](std::string_view text) { return uudecoded(text); }, rows);
}

TEST(Uuencode, ReadsTheBeginLineAcrossWhiteSpace) {
    std::string name;
    int mode = -1;
    EXPECT_EQ(uudecoded("begin  \t 0755x  caf\xE9.txt \n`\n", &name, &mode), "");
    EXPECT_EQ(name, "café.txt ");
    EXPECT_EQ(mode, 0755);
    EXPECT_EQ(uudecoded("begin letters\n\n name\n`\n", &name, &mode), "");
    EXPECT_EQ(name, "name") << "line ends are white space too";
    EXPECT_EQ(mode, 0);
}

TEST(Uuencode, ComplainsAboutAMissingBeginLine) {
    const LogCapture log;
    std::string name = "kept";
    for (const auto text : {"", "x begin 644 x\n", "begin 644 x"}) EXPECT_EQ(uudecoded(text, &name), "none");
    EXPECT_EQ(name, "kept");
    EXPECT_THAT(log.lines(),
                ElementsAre("Missing begin line in uuencoded data", "Missing begin line in uuencoded data",
                            "Malformed begin line in uuencoded data"));
}

std::optional<std::string> unhexed(std::string_view text, std::string* name = nullptr) {
    const ExactCopy exact(text);
    const auto data = decodeBinHex40(Data::ofStatic(exact), name);
    return data ? std::optional(data->toString()) : std::nullopt;
}

TEST(BinHex, GivesTheDataForkAndTheName) {
    RandomText random(42);
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        std::string data;
        while (data.size() < random.below(700)) {
            const char c = random.below(3) == 0 ? '\x90' : static_cast<char>(random.below(256));
            data.append(random.below(400), c);
        }
        const auto name = std::string(random.below(4) == 0 ? 0x90 : random.below(64), 'n');
        std::string found;
        ASSERT_EQ(unhexed("\n\n" + plainEncodeBinHex(name, data, random.below(5)), &found), data);
        EXPECT_EQ(found, name);
    }
}

TEST(BinHex, NeedsAColonAndNothingElse) {
    EXPECT_EQ(unhexed(""), std::nullopt);
    EXPECT_EQ(unhexed("\n\nx:"), std::nullopt);
    EXPECT_EQ(unhexed(":"), "");
    std::string name;
    const auto whole = plainEncodeBinHex("file", "some data", 0);
    EXPECT_EQ(unhexed(whole.substr(0, 12), &name), "");
    EXPECT_EQ(name, "file");
    EXPECT_EQ(unhexed(whole.substr(0, 45), &name), "some da") << "what there is of it";
}

/// What other programs encoded, beside the plain form.
class RealCodecData : public ::testing::Test {
protected:
    void SetUp() override {
        const auto shared = sharedData();
        if (!shared) GTEST_SKIP() << "the folder of real mail is absent";
        _folder = *shared / "encodings/mimekit/encoders";
    }
    Data file(std::string_view name) const { return Data(readFile(_folder / name)); }
    std::filesystem::path _folder;
};

TEST_F(RealCodecData, ThePhotoIsTheSameInAllItsForms) {
    const auto photo = file("photo.jpg");
    EXPECT_EQ(decodeBase64(file("photo.b64")), photo);
    EXPECT_EQ(trimmed(encodeBase64(photo).view()), trimmed(file("photo.b64").view()));
    for (const auto* name : {"photo.uu", "photo.uu-states"}) {  // the latter with lines that resemble "begin"
        std::string fileName;
        int mode = 0;
        EXPECT_EQ(uudecodedDataIntoFile(file(name), &fileName, &mode), photo);
        EXPECT_EQ(fileName, "photo.jpg");
        EXPECT_EQ(mode, 0644);
    }
    EXPECT_EQ(uuencodedDataWithFile(photo, "photo.jpg", 0644), file("photo.uu"));
}

TEST_F(RealCodecData, QuotedPrintableTextReadsAsItsPlainForm) {
    EXPECT_EQ(decodeQuotedPrintable(file("wikipedia.qp")), file("wikipedia.txt"));
    EXPECT_EQ(decodeQuotedPrintable(encodeQuotedPrintable(file("wikipedia.txt"))), file("wikipedia.txt"));
}

}  // namespace
}  // namespace lorvale
