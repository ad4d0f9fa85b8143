#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <set>

#include "lorvale/toolkit/corpus.h"
#include "lorvale/toolkit/index.h"
#include "tests/support/FailureText.h"
#include "tests/support/StoredForm.h"
#include "tests/support/TestSupport.h"

namespace brindle::testing {
namespace {

namespace fs = std::filesystem;
using lorvale::testing::TemporaryFolder;
using lorvale::testing::writeFile;
using Names = std::set<std::string>;

std::string textOf(IADocText& text) {
    std::string bytes;
    std::uint8_t buffer[7];
    while (const auto count = text.GetNextBuffer(buffer, sizeof buffer)) bytes.append(buffer, buffer + count);
    return bytes;
}

/// A folder of files with a bit of everything, and an index of it in memory.
class FileCorpusTest : public ::testing::Test {
protected:
    FileCorpusTest() {
        UFSUnopenedPathReport = [](const char* path) { unopened = path; };
        fs::create_directories(folder / "b/deep/deeper");
        fs::create_directories(folder / "a");
        fs::create_directories(folder / "empty");
        for (const char* name : {"one", "b/two", "b/deep/deeper/three", "a/four", "a/five"})
            writeFile(folder / name, std::string("all ") + name);
        fs::create_symlink(folder / "one", folder / "link");
        fs::create_directory_symlink(folder.path(), folder / "a/round");
        fs::create_symlink("/nowhere", folder / "dangling");
        ::mkfifo((folder / "pipe").c_str(), 0600);
        // Root may read anything; then a name that vanishes is all that cannot be opened.
        writeFile(folder / "secret", "all");
        fs::create_directories(folder / "closed");
        writeFile(folder / "closed/in", "all");
        fs::permissions(folder / "secret", fs::perms::none);
        fs::permissions(folder / "closed", fs::perms::none);
    }
    ~FileCorpusTest() override {
        std::error_code ignored;
        fs::permissions(folder / "closed", fs::perms::owner_all, ignored);
    }

    void Attach(bool make) {
        index.reset();
        storage = IAMakeStorage(std::make_unique<MemoryStoreStream>(bytes));
        auto made = std::make_unique<UFSDirectoryCorpus>(make ? folder.path().c_str() : "/elsewhere");
        corpus = made.get();
        index = std::make_unique<InvertedIndex>(storage.get(), std::move(made),
                                                std::make_unique<OneByteAnalysis>());
        make ? storage->Initialize() : storage->Open(true);
        make ? index->Initialize() : index->Open();
    }
    Names Indexed() {
        Names names;
        const auto docs = index->GetDocIterator();
        while (const auto doc = docs->GetNextDoc()) {
            const auto& file = static_cast<const UFSDirectoryDoc&>(*doc);
            const std::string path = corpus->GetDirectory(file.GetDirectoryID()) + file.GetName();
            EXPECT_TRUE(names.insert(fs::relative(path, folder.path())).second) << path;
        }
        return names;
    }

    static inline std::string unopened;
    const bool isRoot = ::geteuid() == 0;
    TemporaryFolder folder;
    std::shared_ptr<Bytes> bytes = std::make_shared<Bytes>();
    std::unique_ptr<IAStorage> storage;
    UFSDirectoryCorpus* corpus = nullptr;
    std::unique_ptr<InvertedIndex> index;
};

TEST_F(FileCorpusTest, IteratorFindsReadableRegularFilesAlone) {
    UFSIterator files(folder.path().c_str());
    Names expected = {"one", "b/two", "b/deep/deeper/three", "a/four", "a/five"}, found;
    if (isRoot) expected.insert({"secret", "closed/in"});
    EXPECT_EQ(files.GetDirCount(), isRoot ? 7u : 6u);
    EXPECT_EQ(files.GetDirInfos()[0], folder.path());
    EXPECT_EQ(files.GetFullPath(), "");
    fs::remove(folder / "a/five");  // between the listing of directories and that of files
    expected.erase("a/five");
    while (files.Increment()) {
        found.insert(fs::relative(files.GetFullPath(), folder.path()));
        EXPECT_EQ(files.GetPath(), files.GetDirInfos()[files.GetDir()]);
        EXPECT_EQ(files.GetFileInfo().size, fs::file_size(files.GetFullPath()));
    }
    EXPECT_EQ(found, expected);
    EXPECT_FALSE(files.Increment());
    EXPECT_EQ(files.GetFileName(), "");
    EXPECT_EQ(failureOf([] { UFSIterator("/nowhere"); }), "VCUE error getting stat info");
    EXPECT_EQ(failureOf([&] { UFSIterator((folder / "one").c_str()); }), "VCUE specified path not a directory");
    EXPECT_EQ(failureOf([&] { UFSIterator((folder / "link").c_str()); }),
              "VCUE specified path not a directory");
}

TEST_F(FileCorpusTest, UpdateFollowsTheFolder) {
    fs::remove_all(folder / "secret");
    fs::remove_all(folder / "closed");
    Attach(true);
    index->Update();
    const Names all = {"one", "b/two", "b/deep/deeper/three", "a/four", "a/five"};
    EXPECT_EQ(Indexed(), all);
    EXPECT_EQ(corpus->GetDirectoryCount(), 6u);  // the empty one, too
    const std::uint32_t next = index->GetMaxDocID();
    index->Update();
    EXPECT_EQ(index->GetMaxDocID(), next) << "nothing was added again";

    // Reopened elsewhere: the root and the IDs of the directories are those that were stored.
    storage->Commit();
    Attach(false);
    EXPECT_EQ(corpus->GetFullPath(), folder.path());
    fs::remove_all(folder / "b");
    fs::create_directories(folder / "0");
    writeFile(folder / "0/six", "all six");
    writeFile(folder / "a/four", "all changed");
    fs::last_write_time(folder / "a/four", fs::file_time_type::clock::now() - std::chrono::hours(1));
    index->Update();
    EXPECT_EQ(Indexed(), (Names{"one", "0/six", "a/four", "a/five"}));
    EXPECT_EQ(index->GetMaxDocID(), next + 2);
    EXPECT_EQ(index->GetDeletedDocCount(), 3u);
    EXPECT_EQ(VerifyIndex(*index).violations, std::vector<std::string>());

    corpus->SetCriteriaFunction([](const char* path, const char* name) {
        return fs::exists(fs::path(path) / name) && std::string_view(name) != "one";
    });
    index->Update();
    EXPECT_EQ(Indexed(), (Names{"0/six", "a/four", "a/five"}));
    corpus->SetCriteriaFunction([](const char*, const char*) { return false; });
    EXPECT_EQ(corpus->GetDocIterator()->GetNextDoc(), nullptr);
    EXPECT_EQ(UFSDirectoryCorpus(*corpus).GetDirectoryCount(), corpus->GetDirectoryCount());
}

TEST_F(FileCorpusTest, VanishedFilesRaiseAndLeaveTheIndexUsable) {
    Attach(true);
    const auto docs = corpus->GetDocIterator();
    std::vector<std::unique_ptr<IADoc>> found;
    while (auto doc = docs->GetNextDoc()) found.push_back(std::move(doc));
    fs::remove(folder / "one");
    int raised = 0;
    for (auto& doc : found) {
        const bool isGone = doc->GetName() == "one";
        const std::string failure = failureOf([&] { index->AddDoc(std::move(doc)); });
        EXPECT_EQ(failure, isGone ? "VCID Cannot open UFSDoc for read" : "");
        raised += !failure.empty();
    }
    EXPECT_EQ(raised, 1);
    EXPECT_EQ(unopened, folder / "one");
    index->Flush();
    EXPECT_EQ(index->GetDocCount(), found.size() - 1);
    EXPECT_EQ(failureOf([&] { corpus->GetDirectory(99); }), "VCID cannot get directory info");
    fs::remove_all(folder / "b");
    index->Update();
    EXPECT_EQ(index->GetDocCount(), found.size() - 3);
}

TEST_F(FileCorpusTest, TextsOfFiles) {
    const UFSCorpus corpusOfPaths;
    const UFSDoc one((folder / "one").string()), none("/nowhere"), directory(folder.path().string());
    EXPECT_EQ(textOf(*corpusOfPaths.GetDocText(&one)), "all one");
    EXPECT_EQ(failureOf([&] { corpusOfPaths.GetDocText(&none); }), "VCID Cannot open UFSDoc for read");
    EXPECT_EQ(failureOf([&] { corpusOfPaths.GetDocText(&directory); }), "VCID Cannot open UFSDoc for read");
    EXPECT_EQ(unopened, folder.path());
    // A copy shares the position, and outlives the original.
    auto text = std::make_unique<UFSDocText>(one.GetPath());
    std::uint8_t buffer[4];
    EXPECT_EQ(text->GetNextBuffer(buffer, 4), 4u);
    const auto copy = text->DeepCopy();
    text.reset();
    EXPECT_EQ(textOf(*copy), "one");
    UFSDocText closed("/nowhere");
    EXPECT_EQ(closed.DeepCopy()->GetNextBuffer(buffer, 4), 0u);
    // A sparse file of more than 2 GB is listed with its size and read like any other.
    ASSERT_EQ(::truncate((folder / "one").c_str(), (std::int64_t{2} << 30) + 5), 0);
    UFSIterator files(folder.path().c_str());
    while (files.GetFileName() != "one") ASSERT_TRUE(files.Increment());
    EXPECT_EQ(files.GetFileInfo().size, (std::uint64_t{2} << 30) + 5);
    EXPECT_EQ(corpusOfPaths.GetDocText(&one)->GetNextBuffer(buffer, 4), 4u);
}

TEST_F(FileCorpusTest, AnyDepthAndLengthOfPathIsWalkedAsFarAsTheSystemGoes) {
    // Beyond PATH_MAX the system refuses a path; what is there is skipped, and nothing overflows.
    const std::string name(200, 'n');
    const int begin = ::open(".", O_RDONLY);
    ASSERT_EQ(::chdir(folder.path().c_str()), 0);
    for (int level = 0; level < 30; ++level) {
        writeFile("file", "all");
        ASSERT_EQ(::mkdir(name.c_str(), 0700), 0);
        ASSERT_EQ(::chdir(name.c_str()), 0);
    }
    ASSERT_EQ(::fchdir(begin), 0);
    ::close(begin);
    UFSIterator files(folder.path().c_str());
    std::size_t count = 0, expected = 0;
    while (files.Increment()) count += files.GetFileName() == "file";
    for (std::size_t length = folder.path().string().size() + 5; length < PATH_MAX; length += 201) ++expected;
    EXPECT_EQ(count, expected);
}

/// What a prototype restores; the stored form itself goes to `form` in hex digits.
template <class Doc>
std::unique_ptr<Doc> storedAndRestored(const Doc& doc, const Doc& prototype, std::string& form) {
    const std::string stored = storedForm(doc);
    form = hexOf(stored);
    const auto bytes = [](const std::string& text) {
        return std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    };
    EXPECT_EQ(prototype.StoredSize(bytes(stored + "and what may stand behind it")), stored.size());
    EXPECT_EQ(prototype.CompareStored(bytes(stored), &doc), 0);
    return withBlockOf(stored, [&](IAInputBlock* block) { return IARestoreFrom(prototype, block); });
}

TEST(StoredDocs, HaveTheDocumentedForms) {
    std::string form;
    EXPECT_TRUE(storedAndRestored(UFSDoc("/a"), UFSDoc(), form)->Equal(std::make_unique<UFSDoc>("/a").get()));
    EXPECT_EQ(form, "02" + hexOf("/a"));
    const UFSDirectoryDoc file(300, "ab", -2);
    const auto restored = storedAndRestored(file, UFSDirectoryDoc(), form);
    EXPECT_EQ(form, "ac02fffffffe02" + hexOf("ab"));
    EXPECT_TRUE(restored->Equal(&file));
    EXPECT_FALSE(restored->LessThan(&file));
    for (const auto& greater :
         {UFSDirectoryDoc(301, "aa", -9), UFSDirectoryDoc(300, "b", -9), UFSDirectoryDoc(300, "ab", 0)}) {
        EXPECT_TRUE(file.LessThan(&greater));
        EXPECT_FALSE(file.Equal(&greater));
        EXPECT_FALSE(greater.LessThan(&file));
    }
    const auto sentence = storedAndRestored(SentenceDoc("Hi", 3, 1, 130), SentenceDoc(), form);
    EXPECT_EQ(form, "02" + hexOf("Hi") + "03018201");
    EXPECT_EQ(sentence->View(), "Hi");
    EXPECT_EQ(sentence->GetPosition(), 130u);
}

TEST(StoredDocs, ExtentsAreGoodForTheirBufferInThisProcess) {
    const std::string buffer = "One. Two.", other = buffer;
    const IAExtentDoc two(buffer, 5, 4, 2, 1);
    std::string form;
    const auto restored = storedAndRestored(two, IAExtentDoc(buffer), form);
    EXPECT_EQ(restored->View(), "Two.");
    EXPECT_EQ(restored->GetGroupNumber(), 1u);
    EXPECT_EQ(form.substr(8), "0504020100");
    EXPECT_EQ(failureOf([&] { storedAndRestored(two, IAExtentDoc(other), form); }),
              "VCID extent of another buffer");
    EXPECT_EQ(
        failureOf([&] { storedAndRestored(two, IAExtentDoc(std::string_view(buffer).substr(0, 8)), form); }),
        "VCID extent beyond its buffer");
    EXPECT_EQ(failureOf([&] { IAExtentDoc(buffer, 0xFFFFFFFF, 2, 1, 0); }), "VCID extent beyond its buffer");
    // The same buffer at the same address in a program that is begun anew is another one.
    const std::string program = fs::read_symlink("/proc/self/exe");
    static const char fixed[] = "A buffer whose address may well be the same in each process.";
    if (std::getenv("LORVALE_EXTENT_WORD") != nullptr) {
        std::puts(hexOf(storedForm(IAExtentDoc(fixed, 0, 1, 1, 0))).substr(0, 8).c_str());
        std::fflush(stdout);
        ::_exit(0);
    }
    const auto wordOfAnotherProcess = [&] {
        const std::string command =
            "LORVALE_EXTENT_WORD=1 setarch -R '" + program + "' --gtest_filter=StoredDocs.Ext*";
        const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
        std::string text(1000, '\0');
        text.resize(std::fread(text.data(), 1, text.size(), pipe.get()));
        return text.size() < 9 ? text : text.substr(text.size() - 9, 8);
    };
    const std::string first = wordOfAnotherProcess();
    EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos) << first;
    EXPECT_NE(first, wordOfAnotherProcess());
}

}  // namespace
}  // namespace brindle::testing
