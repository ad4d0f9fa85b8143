/// A flat mailbox under another program that acts at a bad moment, one moment a test.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>

#include "tests/mail/stores/MboxRivals.h"
#include "tests/support/PlainMbox.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;
using Call = SharedDisk::Call;
using MboxRivalMoments = MboxRivals;

/// Does something to a file and puts back the time of its last change.
void withoutATrace(const std::string& path, const std::function<void()>& change) {
    struct stat before {};
    ::stat(path.c_str(), &before);
    change();
    const timespec times[] = {before.st_atim, before.st_mtim};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

void overwrite(const std::string& path, std::size_t at, std::string_view bytes) {
    std::fstream file(path, std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(at));
    file << bytes;
}

std::string letters(int first, int last) {
    std::string all;
    for (int n = first; n <= last; ++n) all += letter(n);
    return all;
}

/// What a store over this file lists, once it is open.
std::vector<std::string> listed(const std::string& path) {
    const auto store = BerkeleyMbox::initWithPath(path);
    return store ? bytesOf(store->allMessages()) : std::vector<std::string>{"(not opened)"};
}

void append(BerkeleyMbox& store, int n) {
    store.syncAppendMessages({messageOf(letter(n))}, false);
}

TEST_F(MboxRivalMoments, OverwritingWithoutATraceIsFoundWhileTheMailboxIsCopied) {
    for (const bool endsInALine : {true, false}) {
        for (const std::size_t which : {0U, 2U}) {
            SCOPED_TRACE(which);
            std::string bytes = letters(1, 3), end = "";
            if (!endsInALine) end = bytes.substr(bytes.size() - 2), bytes.resize(bytes.size() - 2);
            writeFile(path, bytes);
            const auto store = BerkeleyMbox::initWithPath(path);
            const auto old = store->allMessages()[which];
            const auto place = which * letter(0).size(),
                       size = std::min(letter(0).size(), bytes.size() - place);
            withoutATrace(path, [&] { overwrite(path, place, letter(9).substr(0, size)); });
            append(*store, 4);
            const auto now = which == 0 ? letter(9) + letters(2, 4) : letters(1, 2) + letter(9) + letter(4);
            EXPECT_EQ(readFile(path), now);
            EXPECT_THAT(bytesOf(store->allMessages()), ElementsAreArray(messagesByPlainRule(now)));
            EXPECT_EQ(bytesOf(*old).front(), '(') << "a message never reads as another one";
        }
    }
}

TEST_F(MboxRivalMoments, ChangesDuringTheReadingMakeItBeginAnew) {
    const auto all = letters(1, 12);  // more than one read
    const auto size = letter(0).size();
    const struct {
        const char* what;
        std::function<void()> duringRead, behindRead;
    } rows[] = {
        {"overwritten", [&] { overwrite(path, 0, letter(20)); }, [] {}},
        {"cut off without a trace", [&] { withoutATrace(path, [&] { fs::resize_file(path, 6 * size); }); },
         [] {}},
        {"grown and cut off", [&] { std::ofstream(path, std::ios::app) << letters(13, 16); },
         [&] { fs::resize_file(path, 14 * size); }},
    };
    for (const auto& [what, duringRead, behindRead] : rows) {
        // Many times, and each time right after a change: before Linux 6.13 the file's times come from a clock
        // that ticks slowly.
        for (int round = 0; round < 10; ++round) {
            SCOPED_TRACE(what);
            writeFile(path, all);
            int readings = 0, looks = 0;
            SharedDisk disk(path, [&](Call call) {
                if (call == Call::readOn && ++readings == 1) duringRead();
                if (call == Call::lookAtOpenFile && readings > 0 && ++looks == 1) behindRead();
            });
            const auto found = listed(path);
            EXPECT_THAT(found, ElementsAreArray(messagesByPlainRule(readFile(path))));
        }
    }
}

TEST_F(MboxRivalMoments, ChangesInTheTickOfTheOneBeforeAreSeen) {
    for (int round = 0; round < 20; ++round) {
        writeFile(path, letters(1, 3));
        const auto store = BerkeleyMbox::initWithPath(path);
        withoutATrace(path, [&] { overwrite(path, 0, letter(1)); });  // only the tick tells of it
        bool done = false;
        SharedDisk disk(path, [&](Call call) {
            const bool isCopied = call == Call::look && fs::exists(path + ".tmp");
            if (isCopied && fs::file_size(path + ".tmp") == letters(1, 4).size() && !std::exchange(done, true))
                withoutATrace(path, [&] { overwrite(path, 0, letter(9)); });
        });
        append(*store, 4);
        ASSERT_TRUE(done);
        ASSERT_EQ(readFile(path), letter(9) + letters(2, 4)) << "round " << round;
    }
}

TEST_F(MboxRivalMoments, MailboxBetweenTwoNamesIsWaitedFor) {
    const auto store = BerkeleyMbox::initWithPath(path);
    int looks = 0;
    SharedDisk disk(path, [&](Call call) {
        if (call != Call::look || fs::exists(path + ".tmp")) return;
        if (++looks == 1) fs::rename(path, path + ".old");
        if (looks == 3) fs::rename(path + ".old", path);
    });
    append(*store, 4);
    EXPECT_EQ(readFile(path), letters(1, 4));
}

TEST_F(MboxRivalMoments, DeliveryThatGoesOnHidesOnlyTheLetterAtWork) {
    int reading = 0;
    SharedDisk disk(path, [&](Call call) {
        if (call == Call::openForReading && ++reading == 2) overwrite(path, letter(0).size(), letter(9));
        if (call == Call::lookAtOpenFile) std::ofstream(path, std::ios::app) << "more\n";
    });
    EXPECT_THAT(listed(path), ElementsAre(letter(1), letter(9))) << "the last one is not complete";
    writeFile(path, letter(1));
    EXPECT_THAT(listed(path), SizeIs(1)) << "an only message does not look gone while it grows";
}

TEST_F(MboxRivalMoments, MarksGoWithTheMessages) {
    const auto store = BerkeleyMbox::initWithPath(path);
    store->deleteMessage(store->allMessages()[0]);
    writeFile(path, letters(5, 6));
    store->rebuildMessageLists();
    EXPECT_EQ(store->deletedCountAndSize().count, 0U);
    EXPECT_EQ(store->undeleteLastDeletedMessages(), std::nullopt);
    store->doCompact();
    EXPECT_EQ(readFile(path), letters(5, 6));
}

}  // namespace
}  // namespace lorvale
