#include "lorvale/values/attributed_text.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>

#include "lorvale/platform/exception.h"
#include "lorvale/values/text.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using lorvale::testing::LogCapture;
using lorvale::testing::TemporaryFolder;
namespace fs = std::filesystem;

TextAttributes sized(double size) {
    TextAttributes attributes;
    attributes.font = Font{"Sans", size};
    return attributes;
}

/// What is wrong with the runs, or an empty text.
std::string check(const AttributedText& text) {
    std::size_t end = 0, bytes = 0;
    const TextAttributes* before = nullptr;
    for (const auto& run : text.runs()) {
        if (run.range.location != end) return "a gap";
        if (run.range.length == 0 || characterCount(run.text) != run.range.length) return "a wrong length";
        if (run.text.data() != text.string().data() + bytes) return "not the text of the run";
        if (before != nullptr && *before == run.attributes) return "two runs alike";
        before = &run.attributes;
        end = run.range.end();
        bytes += run.text.size();
    }
    return end == text.length() && bytes == text.string().size() ? "" : "the text is not covered";
}

/// The obvious way: attributes for each character.
struct Model {
    std::vector<std::pair<std::string, TextAttributes>> characters;

    void insert(std::size_t at, std::string_view text, const TextAttributes& attributes) {
        while (!text.empty()) {
            const auto c = substring(text, {0, 1});
            characters.insert(characters.begin() + static_cast<std::ptrdiff_t>(at++),
                              {std::string(c), attributes});
            text.remove_prefix(c.size());
        }
    }
    void erase(std::size_t first, std::size_t last) {
        const auto at = [this](std::size_t i) { return characters.begin() + static_cast<std::ptrdiff_t>(i); };
        characters.erase(at(first), at(last));
    }
};

TEST(AttributedText, BehavesLikeAttributesForEachCharacter) {
    std::mt19937 random(7);
    AttributedText text;
    Model model;
    TextAttributes underlined;
    underlined.underline = 1;
    const std::string_view words[] = {"a", "äö", "日本x", "\U0001F600", ""};
    for (int step = 0; step < 4000; ++step) {
        const Range range{random() % (text.length() + 3), random() % 6};
        const auto attributes = random() % 3 == 0 ? TextAttributes() : sized(static_cast<double>(random() % 3));
        const auto first = std::min(range.location, model.characters.size());
        const auto last = std::min(first + range.length, model.characters.size());
        const auto word = words[random() % std::size(words)];
        switch (random() % 5) {
            case 0:
                text.append(word, attributes);
                model.insert(model.characters.size(), word, attributes);
                break;
            case 1:
                text.replaceCharacters(range, AttributedText(word, attributes));
                model.erase(first, last);
                model.insert(first, word, attributes);
                break;
            case 2:
                text.setAttributes(range, attributes);
                for (auto i = first; i < last; ++i) model.characters[i].second = attributes;
                break;
            case 3:
                text.removeAttribute(range, TextAttribute::font);
                for (auto i = first; i < last; ++i) model.characters[i].second.remove(TextAttribute::font);
                break;
            default:
                text.addAttributes(range, underlined);
                for (auto i = first; i < last; ++i) model.characters[i].second.underline = 1;
        }
        ASSERT_EQ(check(text), "") << "step " << step;
        ASSERT_EQ(text.length(), model.characters.size());
        for (std::size_t i = 0; i < model.characters.size(); ++i) {
            ASSERT_EQ(text.attributesAtIndex(i), model.characters[i].second) << "step " << step << " at " << i;
            ASSERT_EQ(substring(text.string(), {i, 1}), model.characters[i].first);
        }
        const auto part = text.attributedSubstring(range);
        ASSERT_EQ(check(part), "");
        ASSERT_EQ(part.string(), substring(text.string(), range));
        if (text.length() > 60) text.deleteCharacters({0, 50}), model.erase(0, 50);
    }
    EXPECT_THROW(text.attributesAtIndex(text.length()), RangeException);
}

TEST(AttributedText, IsEmptyAndUsableAfterAMove) {
    AttributedText text("some text", sized(9)), other("other");
    other = std::move(text);
    EXPECT_TRUE(text == AttributedText() && text.length() == 0);
    text.append(other);
    EXPECT_EQ(check(text), "");
    auto& same = text;
    text = std::move(same);
    EXPECT_EQ(text, AttributedText("some text", sized(9)));
}

TEST(AttributedText, LayingAttributesCostsTheSameEverywhere) {
    // Last to first over text that is not ASCII: walking to each place from the start would take minutes.
    AttributedText text;
    for (int i = 0; i < 100'000; ++i) text.append("abcdefghi\u00e4");
    for (std::size_t i = 100'000; i-- > 0;)
        text.setAttributes({i * 10 + 3, 4}, sized(static_cast<double>(i % 7)));
    EXPECT_EQ(check(text), "");
    EXPECT_EQ(text.runs().size(), 200'001u);
    EXPECT_EQ(text.runAtIndex(999'993).text, "defg");
}

TEST(AttributedText, FindsTheNextRunWithAnAttribute) {
    AttributedText text("plain ");
    text.append("big", sized(20));
    text.append(" plain");
    const auto run = text.nextAttribute(TextAttribute::font, 0);
    ASSERT_TRUE(run);
    EXPECT_EQ(run->range, (Range{6, 3}));
    EXPECT_EQ(text.nextAttribute(TextAttribute::font, 7)->text, "ig") << "cut off in front of the location";
    EXPECT_FALSE(text.nextAttribute(TextAttribute::font, 9));
    EXPECT_FALSE(text.nextAttribute(TextAttribute::attachment, 0));
}

TEST(AttributedText, HoldsAttachmentsAsCharacters) {
    const auto file = FileWrapper::regularFile(Data::ofStatic("content"));
    AttributedText text("see ");
    text.append(AttributedText(file));
    text.append(AttributedText(FileWrapper::symbolicLink("/etc")));
    text.append(text.attributedSubstring({0, 4}));
    EXPECT_EQ(text.string(), "see \uFFFC\uFFFCsee ");
    ASSERT_EQ(text.attachments().size(), 2u) << "two neighbours are two";
    EXPECT_EQ(text.attachments()[0], file);
    text.removeAllAttachments();
    EXPECT_EQ(text.string(), "see see ");
    EXPECT_FALSE(text.containsAttachments());
    EXPECT_EQ(text.runs().size(), 1u);
}

TEST(AttributedText, BytesThatAreNotUtf8BecomeCharacters) {
    AttributedText text("a\xC3");
    text.append("\xA9");
    EXPECT_EQ(text.string(), "aÃ©") << "two halves are not put together";
    EXPECT_EQ(text.length(), 3u);
}

std::shared_ptr<FileWrapper> named(std::string_view name, std::shared_ptr<FileWrapper> wrapper) {
    EXPECT_EQ(wrapper->setPreferredFilename(name), FileWrapper::isFilename(name));
    return wrapper;
}

TEST(FileWrapper, ComesBackFromDiskAsItWasWritten) {
    const TemporaryFolder folder;
    const auto path = (folder / "tree").string();
    const auto tree = FileWrapper::directory(), inside = FileWrapper::directory();
    tree->addFileWrapper(named("note.txt", FileWrapper::regularFile(Data::ofStatic("one"))));
    tree->addFileWrapper(named("note.txt", FileWrapper::regularFile(Data::ofStatic("two"))));
    inside->addFileWrapper(named("link", FileWrapper::symbolicLink("../note.txt")));
    tree->addFileWrapper(named("inside", inside));
    tree->setPermissions(0500);
    tree->fileWrappers().at("note.txt")->setPermissions(04751);
    ASSERT_TRUE(tree->writeToPath(path));

    const auto back = FileWrapper::withPath(path);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->preferredFilename(), "tree");
    EXPECT_EQ(back->permissions(), 0500u) << "filled before it was closed to writers";
    const auto& entries = back->fileWrappers();
    EXPECT_EQ(entries.at("note.txt")->permissions(), 0751u) << "but runs as nobody else";
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries.at("note.txt")->regularFileContents().view(), "one");
    EXPECT_EQ(entries.at("note-2.txt")->regularFileContents().view(), "two")
        << "the second of a name gets another";
    EXPECT_EQ(entries.at("inside")->fileWrappers().at("link")->symbolicLinkDestination(), "../note.txt");
}

TEST(FileWrapper, NeverLeadsOutOfItsDirectory) {
    const TemporaryFolder folder;
    const LogCapture log;
    using namespace std::string_literals;
    const auto tree = FileWrapper::directory(), inside = FileWrapper::directory();
    for (const auto& name : {"../escaped"s, "/escaped"s, ".."s, "."s, ""s, "a\0b"s}) {
        const auto file = named("good", FileWrapper::regularFile({}));
        EXPECT_FALSE(file->setPreferredFilename(name) || file->setFilename(name));
        EXPECT_EQ(tree->addFileWrapper(file).substr(0, 4), "good");
        EXPECT_THROW(tree->addFileWrapper(named(name, FileWrapper::regularFile({}))), InvalidArgumentException);
    }
    EXPECT_TRUE(tree->fileWrappers().contains("good-6"));
    tree->addFileWrapper(named("inside", inside));
    EXPECT_THROW(inside->addFileWrapper(tree), InvalidArgumentException) << "no circles";
    EXPECT_THROW(inside->addFileWrapper(nullptr), InvalidArgumentException);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(FileWrapper::withPath((folder / "pipe").string()), nullptr) << "and nobody waits for a writer";
    EXPECT_EQ(FileWrapper::withPath((folder / "missing").string()), nullptr);
    EXPECT_FALSE(fs::exists(folder / "escaped"));
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_THROW(FileWrapper::regularFile({})->addFileWrapper(FileWrapper::directory()),
                 InvalidArgumentException);
}

}  // namespace
}  // namespace lorvale
