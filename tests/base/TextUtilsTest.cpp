#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "base/files/PathUtils.h"
#include "base/platform/FullUserName.h"
#include "base/text/StringUtils.h"
#include "base/text/TextScanner.h"
#include "lorvale/values/text.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using lorvale::testing::LogCapture;
using lorvale::testing::readFile;
using lorvale::testing::TemporaryFolder;
using lorvale::testing::writeFile;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;
namespace fs = std::filesystem;

TEST(StringUtils, PrefixesAndSuffixesFoldByCharacter) {
    EXPECT_TRUE(hasCasePrefix("Straße 1", "STRASSE"));
    EXPECT_TRUE(hasCasePrefix("STRASSE", "straß"));
    EXPECT_FALSE(hasCasePrefix("ß", "s")) << "half a character is none";
    EXPECT_FALSE(hasCasePrefix("re", "re:"));
    EXPECT_TRUE(hasCaseSuffix("BRIEF.Maß", "mASS"));
    EXPECT_FALSE(hasCaseSuffix("ß", "s"));
    EXPECT_EQ(casePrefixLength("ÉCOLE", "éc"), 3u);
}

TEST(StringUtils, PrefixGoesAsOftenAsItIsThere) {
    EXPECT_EQ(stringByRemovingPrefix("aaAb", "a", false), "Ab");
    EXPECT_EQ(stringByRemovingPrefix("a", "", true), "a");
}

TEST(StringUtils, RangesCountCharacters) {
    EXPECT_EQ(validRange("äöü", {1, 9}), (Range{1, 2}));
    EXPECT_EQ(validRange("äöü", {7, 9}), (Range{3, 0}));
    EXPECT_EQ(clearwhite("ä \t\nü ", {1, 5}), (Range{4, 2}));
    EXPECT_EQ(clearwhite("ä   x", {1, 3}), (Range{4, 0})) << "all white: empty, at the end";
    EXPECT_EQ(rclearwhite("ä ü \n", {0, 5}), (Range{0, 3}));
    EXPECT_EQ(rclearwhite("ä   x", {1, 3}), (Range{0, 0})) << "all white: empty, at the start of all";
}

TEST(StringUtils, FormsForOtherReaders) {
    EXPECT_EQ(_fixStringForShell("a\\b\\\\"), "a\\\\b\\\\\\\\");
    EXPECT_EQ(_tarnReferenceName("letter.attach,x,y"), "letter.attach");
    EXPECT_EQ(cStringWithSpaces("añb\xFFz\U0001F600"), "a b z ");
    EXPECT_EQ(stringWithData(std::nullopt, StringEncoding::utf8), std::nullopt);
    EXPECT_EQ(nameFromGecos("& Smith,Room 2,", "anna"), "anna Smith");
}

TEST(PathUtils, TakesPathsApartAndJoinsThem) {
    EXPECT_EQ(pathWithDirectory("/a", "b", "txt"), "/a/b.txt");
    EXPECT_EQ(pathWithDirectory(std::nullopt, "b"), "b");
    EXPECT_EQ(lastPathComponent("/a/b/"), "b");
    EXPECT_EQ(lastPathComponent("/"), "/");
    EXPECT_EQ(pathExtension("/a.d/b.tar.gz"), "gz");
    EXPECT_EQ(pathExtension("/a.d/.profile"), "");
    EXPECT_EQ(stringByDeletingPathExtension("b.mbox/"), "b");
    EXPECT_EQ(stringByDeletingLastPathComponent("/a//b"), "/a");
    EXPECT_EQ(stringByDeletingLastPathComponent("a"), "");
    EXPECT_EQ(stringByAppendingPathComponent("/a/", "/b"), "/a/b");
}

TEST(PathUtils, FindsFreeNames) {
    const TemporaryFolder folder;
    const auto path = (folder / "a long name.txt").string();
    EXPECT_EQ(uniquePath(path), path) << "free as it is";
    writeFile(path, "");
    const auto process = std::to_string(::getpid());
    const auto free = uniquePath(path);
    EXPECT_THAT(fs::path(free).filename().string(), MatchesRegex("a long name-" + process + "-[0-9]+\\.txt"));
    EXPECT_NE(uniquePath(path), free) << "the serial number rises";
    EXPECT_THAT(fs::path(makeUniqueFilePath(path)).filename().string(),
                MatchesRegex("a long name\\." + process + "[0-9]+\\.txt"));
    // The stem leaves eight characters, the end of the process all but four of these, the serial's end the rest
    // (its "-" is over).
    const auto ofProcess = [&](std::size_t most) {
        return process.substr(process.size() - std::min(most, process.size()));
    };
    for (const auto& [most, stem, process4] :
         {std::tuple{12, "a lo", 4u}, {15, "a long ", 4u}, {24, "a long name", 9u}})
        EXPECT_THAT(fs::path(uniquePathWithMaximumLength(path, most)).stem().string(),
                    MatchesRegex(stem + ("-" + ofProcess(process4)) + "-[0-9]{1,3}"));
    for (int i = 0; i < 1000; ++i) static_cast<void>(uniquePathWithMaximumLength(path, 12));
    EXPECT_THAT(
        fs::path(uniquePathWithMaximumLength(path, 12)).stem().string(),
        MatchesRegex("a lo-" + ofProcess(4) + "-[0-9]{3," + std::to_string(7 - ofProcess(4).size()) + "}"))
        << "of a serial number above 999 the last three, behind a process of four digits";
    writeFile(folder / "--.txt", "");
    EXPECT_NE(uniquePathWithMaximumLength(path, 1), (folder / "--.txt").string())
        << "ends although no short name is left";
}

TEST(PathUtils, CopiesAndDeletesTrees) {
    const TemporaryFolder folder;
    const auto from = (folder / "from").string(), to = (folder / "to").string();
    ASSERT_TRUE(makeDirectoryWithMode(from + "/sub/deeper", 0700));
    EXPECT_EQ(fs::status(from + "/sub").permissions(), fs::perms::owner_all);
    ASSERT_TRUE(makeDirectoryWithMode(from, 0755)) << "there already";
    writeFile(from + "/sub/file", "content");
    fs::create_symlink("nowhere", from + "/link");
    fs::permissions(from + "/sub", fs::perms::owner_read | fs::perms::owner_exec);
    ASSERT_TRUE(copyToPath(from, to));
    EXPECT_EQ(readFile(to + "/sub/file"), "content");
    EXPECT_EQ(fs::read_symlink(to + "/link"), "nowhere");
    EXPECT_EQ(fs::status(to + "/sub").permissions(), fs::perms::owner_read | fs::perms::owner_exec);
    for (const auto& path : {from, to}) fs::permissions(path + "/sub", fs::perms::owner_all);

    const LogCapture log;
    EXPECT_FALSE(copyToPath(from, to)) << "the place is taken";
    EXPECT_FALSE(copyToPath(from, from + "/sub/inside")) << "it would never end";
    EXPECT_FALSE(copyToPath((folder / "missing").string(), to));
    EXPECT_FALSE(makeDirectoryWithMode(from + "/sub/file/x", 0700));
    EXPECT_EQ(log.lines().size(), 4u);

    writeFile(folder / "kept", "");
    fs::create_symlink(folder.path(), to + "/up");
    EXPECT_TRUE(deletePath(to));
    EXPECT_TRUE(fs::exists(folder / "kept")) << "a link is removed, not what it points to";
    EXPECT_FALSE(fs::exists(to));
    EXPECT_TRUE(deleteFile(to));

    // "link/" leads behind the link in the system's calls, and the folder there would be copied or emptied.
    const auto link = (folder / "up").string();
    fs::create_symlink(from, link);
    EXPECT_NE(uniquePath(link + "/"), link + "/");
    EXPECT_TRUE(copyToPath(link + "//", to + "/"));
    EXPECT_TRUE(fs::is_symlink(to));
    EXPECT_TRUE(deletePath(link + "/"));
    EXPECT_FALSE(pathExists(link + "/"));
    EXPECT_TRUE(fs::exists(from + "/sub/file"));
}

TEST(TextScanner, SkipsBeforeEachScanAndFailsWithoutMoving) {
    TextScanner scanner("  Größe = 12 ,-99999999999  2.5e1x ");
    std::string_view taken;
    EXPECT_FALSE(scanner.scanString("=", &taken));
    EXPECT_EQ(scanner.scanLocation(), 0u);
    EXPECT_TRUE(scanner.scanUpToString("=", &taken));
    EXPECT_EQ(taken, "Größe ");
    EXPECT_FALSE(scanner.scanUpToString("="));
    EXPECT_TRUE(scanner.scanString("="));
    int number = 0;
    EXPECT_TRUE(scanner.scanInt(&number));
    EXPECT_EQ(number, 12);
    EXPECT_FALSE(scanner.scanInt(&number));
    EXPECT_TRUE(scanner.scanCharactersFromSet(CharacterSet(","), &taken));
    EXPECT_TRUE(scanner.scanInt(&number));
    EXPECT_EQ(number, std::numeric_limits<int>::min());
    double real = 0;
    EXPECT_TRUE(scanner.scanFloat(&real));
    EXPECT_EQ(real, 25.0);
    EXPECT_FALSE(scanner.scanFloat(&real));
    EXPECT_FALSE(scanner.isAtEnd());
    EXPECT_TRUE(scanner.scanUpToCharactersFromSet(CharacterSet::whitespaceAndNewlineSet(), &taken));
    EXPECT_EQ(taken, "x");
    EXPECT_TRUE(scanner.isAtEnd()) << "only blanks are left";
    EXPECT_FALSE(scanner.scanEndIntoString(&taken));
}

TEST(TextScanner, CaseMattersOnlyWhenAskedFor) {
    TextScanner scanner("Straße STRASSE");
    std::string_view taken;
    EXPECT_TRUE(scanner.scanString("strasse", &taken));
    EXPECT_EQ(taken, "Straße");
    scanner.setCaseSensitive(true);
    EXPECT_FALSE(scanner.scanString("strasse"));
    EXPECT_TRUE(scanner.scanString("STRASSE"));
}

TEST(TextScanner, TheAdditionsTakeWhatThePlainScansRefuse) {
    TextScanner scanner("?a,,bé  c, d");
    std::string_view taken = "none";
    EXPECT_TRUE(scanner.betterScanUpToString("?", &taken));
    EXPECT_EQ(taken, "");
    EXPECT_TRUE(scanner.betterScanUpToCharactersFromSet(CharacterSet("?")));
    char32_t c = 0;
    EXPECT_TRUE(scanner.scanCharacter(&c));
    EXPECT_EQ(c, U'?');
    EXPECT_EQ(scanner.scanTokenSeparatedByString(","), "a");
    EXPECT_EQ(scanner.scanTokenSeparatedByString(","), "");
    EXPECT_TRUE(scanner.scanStringOfLength(2, &taken));
    EXPECT_EQ(taken, "bé");
    EXPECT_EQ(scanner.scanTokenSeparatedByString(","), "c");
    EXPECT_EQ(scanner.scanTokenSeparatedByString(","), "d") << "the last one";
    EXPECT_EQ(scanner.scanTokenSeparatedByString(","), std::nullopt);
    EXPECT_FALSE(scanner.betterScanUpToString("?"));
    EXPECT_FALSE(scanner.scanStringOfLength(1));
}

TEST(TextScanner, TokensEndAtPunctuationAndAtWhatIsSkipped) {
    const auto tokens = [](TextScanner scanner, const CharacterSet& punctuation) {
        std::vector<std::string_view> result;
        while (const auto token = scanner.nextTokenWithPunctuation(punctuation)) result.push_back(*token);
        return result;
    };
    EXPECT_THAT(tokens(TextScanner(" text/plain\ttxt "), CharacterSet("/")),
                ElementsAre("text", "/", "plain", "txt"));
    // As header values are read for writing: all but white space and parentheses stands by itself.
    EXPECT_THAT(tokens(TextScanner("é! (b)"), CharacterSet(" \t\n()").inverted()),
                ElementsAre("é", "!", "(", "b", ")"));
    TextScanner all("a b");
    all.setCharactersToBeSkipped(CharacterSet());
    EXPECT_THAT(tokens(all, CharacterSet("<")), ElementsAre("a b"));
}

}  // namespace
}  // namespace lorvale
