#include <gmock/gmock.h>

#include <filesystem>

#include "lorvale/defaults.h"
#include "lorvale/mime.h"
#include "lorvale/platform/run_loop.h"
#include "tests/support/IndexedMailbox.h"
#include "tests/support/LogCapture.h"
#include "tests/support/StoreSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

/// Of a mailbox that nobody has open.
bool hasAllInFiles(const std::string& path) {
    const auto reader = TarnMbox::initWithPath(path, /*readOnly=*/true);
    if (reader == nullptr) return false;
    const bool hasAll = IndexManager::hasAllMessages(*reader);
    reader->close();
    return hasAll;
}

TEST(MailboxSearch, FindsWhatWasAppendedBeforeAndAfterItWasTurnedOn) {
    IndexedMailbox box(/*indexed=*/false);
    ASSERT_TRUE(box.append(numberedLetters(1, 3)));
    EXPECT_THAT(box.find("rare2"), ElementsAre("(no index)"));
    box.turnOn();
    EXPECT_THAT(box.find("rare2"), ElementsAre("about 2"));
    ASSERT_TRUE(box.append({numberedLetter(4)}));
    ASSERT_TRUE(box.wait());
    EXPECT_THAT(box.find("rare4"), ElementsAre("about 4"));
    EXPECT_THAT(box.find("letter"), UnorderedElementsAre("about 1", "about 2", "about 3", "about 4"));
    EXPECT_EQ(IndexManager::indexedCount(*box.store), 4u);
    box.reopen();
    ASSERT_TRUE(box.wait());
    EXPECT_THAT(box.find("rare3 | rare4", true), UnorderedElementsAre("about 3", "about 4"));
}

TEST(MailboxSearch, ForgetsWhatACompactionTakesOut) {
    for (const auto* const risky : {"NO", "YES"}) {
        SCOPED_TRACE(risky);
        UserDefaults::standard().setArgument("RiskyCompact", risky);
        IndexedMailbox box;
        ASSERT_TRUE(box.append(numberedLetters(1, 5)));
        ASSERT_TRUE(box.wait());
        box.store->deleteMessages({box.store->allMessages()[1], box.store->allMessages()[3]});
        EXPECT_THAT(box.find("rare2"), ElementsAre("about 2"));
        box.store->doCompact();
        EXPECT_THAT(box.find("rare2"), IsEmpty());
        ASSERT_TRUE(box.wait());
        EXPECT_EQ(IndexManager::indexedCount(*box.store), 3u);
        EXPECT_THAT(box.find("letter"), UnorderedElementsAre("about 1", "about 3", "about 5"));
    }
    UserDefaults::standard().removeArguments();
}

TEST(MailboxSearch, FindsWhatAnotherProgramHasAddedOnceTheStoreKnowsOfIt) {
    const LogCapture quiet;
    IndexedMailbox box;
    ASSERT_TRUE(box.append(numberedLetters(1, 3)));
    const auto addFromOutside = [&](int number) {
        const auto mail = box.path() + "/mbox";
        writeFile(mail, readFile(mail) + numberedLetter(number)->messageData()->toString() + "\n");
    };
    ASSERT_TRUE(box.wait());
    addFromOutside(4);
    box.store->rebuildTableOfContents();
    ASSERT_TRUE(box.wait());
    EXPECT_THAT(box.find("rare4"), ElementsAre("about 4"));
    // A compaction that changes the mail in place asks for no update of its own.
    UserDefaults::standard().setArgument("RiskyCompact", "YES");
    box.store->deleteMessage(box.store->allMessages()[1]);
    addFromOutside(5);
    box.store->doCompact();
    ASSERT_TRUE(box.wait());
    EXPECT_THAT(box.find("letter"), UnorderedElementsAre("about 1", "about 3", "about 4", "about 5"));
    UserDefaults::standard().removeArguments();
}

TEST(MailboxSearch, TurningOffTakesTheFileAwayASecondLaterUnlessItIsTurnedOnAgain) {
    IndexedMailbox box;
    ASSERT_TRUE(box.append(numberedLetters(1, 2)));
    ASSERT_TRUE(box.wait());
    ASSERT_TRUE(std::filesystem::exists(box.indexPath()));
    box.store->setIsIndexed(false);
    EXPECT_THAT(box.find("letter"), ElementsAre("(no index)"));
    box.turnOn();
    RunLoop::main()->runFor(std::chrono::milliseconds(1200));
    EXPECT_THAT(box.find("rare1"), ElementsAre("about 1"));
    box.store->setIsIndexed(false);
    box.store->setIsIndexed(false);
    RunLoop::main()->runFor(std::chrono::milliseconds(1200));
    EXPECT_FALSE(std::filesystem::exists(box.indexPath()));
    EXPECT_FALSE(box.store->isIndexed());
}

TEST(MailboxSearch, ThrowsAwayADamagedIndexAndMakesItAnew) {
    IndexedMailbox box;
    ASSERT_TRUE(box.append(numberedLetters(1, 30)));
    ASSERT_TRUE(box.wait());
    box.close();
    const auto sound = readFile(box.indexPath());
    LogCapture log;
    for (const auto damage : {"", "no index at all", "Bud1"}) {
        SCOPED_TRACE(damage);
        writeFile(box.indexPath(), damage);
        box.open();
        ASSERT_TRUE(box.wait());
        EXPECT_THAT(box.find("rare7"), ElementsAre("about 7"));
        EXPECT_EQ(IndexManager::indexedCount(*box.store), 30u);
        EXPECT_THAT(log.take(), ::testing::Contains(HasSubstr("Removing index for mailbox: ")));
        box.close();
    }
    writeFile(box.indexPath(), sound);
    box.open();
    ASSERT_TRUE(box.wait());
    EXPECT_THAT(box.find("rare7"), ElementsAre("about 7"));
    EXPECT_THAT(log.take(), ::testing::Not(::testing::Contains(HasSubstr("Removing"))));
}

TEST(MailboxSearch, CatchesUpWithWhatChangedWhileNoIndexWasKept) {
    IndexedMailbox box;
    ASSERT_TRUE(box.append(numberedLetters(1, 6)));
    ASSERT_TRUE(box.wait());
    box.close();
    const auto old = readFile(box.indexPath());
    // As many messages as before, but other ones.
    box.open();
    box.store->deleteMessages({box.store->allMessages()[1], box.store->allMessages()[2]});
    box.store->doCompact();
    ASSERT_TRUE(box.append(numberedLetters(7, 2)));
    box.close();
    writeFile(box.indexPath(), old);
    box.open();
    ASSERT_TRUE(box.wait());
    EXPECT_THAT(box.find("letter"),
                UnorderedElementsAre("about 1", "about 4", "about 5", "about 6", "about 7", "about 8"));
    EXPECT_THAT(box.find("rare2"), IsEmpty());
}

TEST(MailboxSearch, IndexesOneOfSeveralMessagesWithOneID) {
    IndexedMailbox box;
    ASSERT_TRUE(box.append({numberedLetter(1), numberedLetter(1), numberedLetter(2)}));
    ASSERT_TRUE(box.wait());
    EXPECT_EQ(IndexManager::indexedCount(*box.store), 2u);
    box.store->deleteMessage(box.store->allMessages()[0]);
    box.store->doCompact();
    ASSERT_TRUE(box.wait());
    EXPECT_THAT(box.find("rare1"), ElementsAre("about 1")) << "the other one is still there";
}

TEST(MailboxSearch, TellsByTheTimesOfTheFilesThatNothingIsMissing) {
    namespace files = std::filesystem;
    IndexedMailbox box;
    const auto mail = box.path() + "/mbox";
    const auto age = [&] {
        files::last_write_time(mail, files::last_write_time(mail) - std::chrono::hours(1));
    };
    const auto hasAll = [&] { return box.reopen(), IndexManager::hasAllMessages(*box.store); };
    const auto hadAll = [&] { return box.wait(), box.close(), hasAllInFiles(box.path()); };
    ASSERT_TRUE(box.append({numberedLetter(1), numberedLetter(1), numberedLetter(2)}));
    EXPECT_FALSE(hadAll()) << "mail may have come in the same tick of the clock";
    const auto now = files::file_time_type::clock::now();
    for (const auto& path : {mail, box.indexPath()}) files::last_write_time(path, now);
    EXPECT_FALSE(hasAllInFiles(box.path())) << "both were just written in the same tick";
    age();
    EXPECT_FALSE(hasAll()) << "while it is kept";
    EXPECT_TRUE(hadAll());
    EXPECT_FALSE(hasAll());
    ASSERT_TRUE(box.append({numberedLetter(3)}));
    box.wait();
    age();
    EXPECT_FALSE(hadAll()) << "somebody else has been at the mail";
    EXPECT_FALSE(hasAll());
    EXPECT_TRUE(hadAll());
    age();
    EXPECT_FALSE(hasAllInFiles(box.path()));
    EXPECT_FALSE(hasAll());
    box.store->removeMessagesFromIndex(box.store->allMessages());
    EXPECT_FALSE(hadAll()) << "they are still in the mailbox";
}

/// Two neighbouring characters of messages of the sample.
TEST(MailboxSearch, FindsTheJapaneseAndChineseMailOfTheSample) {
    const auto data = sharedData();
    if (!data) GTEST_SKIP() << "no sample mail beside the checkout";
    const struct {
        const char *file, *query;
    } rows[] = {{"mime/mimekit/messages/japanese.txt", "日本"},
                {"mime/mikel-mail/multi_charset/japanese_shift_jis.eml", "今後"},
                {"mime/mikel-mail/multi_charset/japanese_iso_2022.eml", "まみ"},
                {"mime/mikel-mail/plain_emails/raw_email_with_partially_quoted_subject.eml", "漢字"},
                {"mime/mikel-mail/error_emails/content_transfer_encoding_empty.eml", "矇竄"}};
    UserDefaults::standard().setArgument("IndexAnalysis", "Uni1");
    setMailDialect(MailDialect::standard);
    const LogCapture quiet;
    IndexedMailbox box;
    for (const auto& row : rows) {
        auto bytes = readFile(*data / row.file);
        std::erase(bytes, '\r');  // as it is in a mailbox
        if (!bytes.starts_with("From ")) bytes = "From a@x.example Thu Aug 22 12:46:23 2002\n" + bytes;
        ASSERT_TRUE(box.append({Message::messageWithData(Data::copyOf(bytes))})) << row.file;
    }
    ASSERT_TRUE(box.append(numberedLetters(1, 3)));
    ASSERT_TRUE(box.wait());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        const auto number = static_cast<std::size_t>(&row - rows);
        const auto subject = box.store->allMessages()[number]->headers()->subject();
        EXPECT_THAT(box.find(row.query), ::testing::Contains(subject));
        EXPECT_THAT(box.find(std::string(row.query) + " not letter", true), ::testing::Contains(subject));
    }
    setMailDialect(MailDialect::classic);
    UserDefaults::standard().removeArguments();
}

TEST(MailboxSearch, IsOnlyReadWhereTheMailboxMayNotBeChanged) {
    IndexedMailbox box;
    ASSERT_TRUE(box.append(numberedLetters(1, 2)));
    ASSERT_TRUE(box.wait());
    box.reopen();  // which writes the table for others
    ASSERT_TRUE(box.wait());
    const auto before = std::filesystem::last_write_time(box.indexPath());
    const auto reader = TarnMbox::initWithPath(box.path(), /*readOnly=*/true);
    ASSERT_NE(reader, nullptr);
    ASSERT_TRUE(IndexManager::waitUntilIdle(*reader, std::chrono::steady_clock::now() + kPatience));
    auto& manager = IndexManager::indexManager();
    EXPECT_EQ(manager.messagesInStore(reader, "rare2")->size(), 1u);
    EXPECT_EQ(std::filesystem::last_write_time(box.indexPath()), before);
    // It notices what the other one writes.
    ASSERT_TRUE(box.append({numberedLetter(3, "common common")}));
    ASSERT_TRUE(box.wait());
    std::vector<float> ranks;
    EXPECT_EQ(manager.messagesInStore(reader, "rare3", &ranks)->size(), 0u) << "it has not listed that one";
    EXPECT_THAT(ranks, ElementsAre(1.0F));
    reader->close();
}

TEST(MailboxSearch, AnswersForAllMailboxesWhereNoneIsNamed) {
    auto& manager = IndexManager::indexManager();
    EXPECT_EQ(manager.messagesInStore(nullptr, "letter"), std::nullopt);
    IndexedMailbox one, two, none(/*indexed=*/false);
    ASSERT_TRUE(one.append(numberedLetters(1, 2)) && two.append(numberedLetters(3, 1)));
    ASSERT_TRUE(one.wait() && two.wait());
    EXPECT_EQ(manager.messagesInStore(nullptr, "letter")->size(), 3u);
    EXPECT_EQ(manager.messagesInStore(one.store, "letter")->size(), 2u);
    EXPECT_EQ(manager.messagesInStore(none.store, "letter")->size(), 3u);
    std::string error;
    EXPECT_EQ(manager.messagesInStore(one.store, "a and and b", nullptr, true, &error)->size(), 0u);
    EXPECT_EQ(error, "invalid query");
    for (const auto* const limit : {"0", "-3", "1"}) {
        UserDefaults::standard().setArgument("MaximumSearchHits", limit);
        EXPECT_EQ(manager.messagesInStore(nullptr, "letter")->size(), limit == std::string("1") ? 1u : 3u);
    }
    UserDefaults::standard().removeArguments();
}

TEST(MailboxSearch, RewritesWhatPeopleTypeForTheParser) {
    const struct {
        const char *why, *typed, *query;
    } rows[] = {
        {"words and case", "Mail and search", "mail & search "},
        {"groups", "a or (b and c)", "a | (b & c) "},
        {"a keyword at a parenthesis stays", "a and (not b)", "a & (not b) "},
        {"a keyword in last place is a word", "and", "and "},
        {"so is one before an operator", "x and & b", "x and & b "},
        {"the second is an operator, too", "a and and b", "a & & b "},
        {"unbalanced parentheses go", "(a", "a "},
        {"signs stay", "a&b | c !d", "a &b | c !d "},
        {"an operator in first place has an end", "& a", "& a "},
        {"nothing but operators", " !! ", "!! "},
        {"white space", " \t\n ", ""},
        {"not in ASCII", "M\xC3\x9CLLER", "m\xC3\xBCller "},
    };
    for (const auto& row : rows)
        EXPECT_EQ(IndexManager::processBooleanSearchString(row.typed), row.query) << row.why;
}

TEST(MailboxSearch, IsMadeAnewForAnotherAnalysis) {
    const LogCapture quiet;
    IndexedMailbox box;
    ASSERT_TRUE(box.append({Message::messageWithData(Data::copyOf(
        "From: \"=?utf-8?q?M=C3=BChlen?=\" <a@x.example>\nSubject: about 1\nMIME-Version: 1.0\n"
        "Content-Type: text/plain; charset=utf-8\n\nHerr M\xC3\xBCller, \xE6\x9D\xB1\xE4\xBA\xAC\n"))}));
    ASSERT_TRUE(box.wait());
    EXPECT_THAT(box.find("Muller"), IsEmpty());
    UserDefaults::standard().setArgument("IndexAnalysis", "Uni1");
    box.reopen();
    ASSERT_TRUE(box.wait());
    const auto words = {"m\xC3\xBCller", "Muller", "M\xC3\x9CLLER", "m\xC3\xBChlen",
                        "\xE6\x9D\xB1\xE4\xBA\xAC"};
    for (const auto* const word : words) {
        EXPECT_THAT(box.find(word), ElementsAre("about 1")) << word;
        EXPECT_THAT(box.find(word, true), ElementsAre("about 1")) << word;
    }
    UserDefaults::standard().removeArguments();
}

/// What the user is asked when the default "AlwaysCreateIndex" is on.
TEST(MailboxSearch, AsksWhetherToIndexAMailbox) {
    UserDefaults::standard().setArgument("AlwaysCreateIndex", "YES");
    const struct {
        AlertChoice choice;
        bool isIndexed, remembers;
    } rows[] = {{AlertChoice::alternateButton, false, false},
                {AlertChoice::defaultButton, true, false},
                {AlertChoice::otherButton, false, true}};
    for (const auto& row : rows) {
        WindowHost host(row.choice);
        IndexedMailbox box(/*indexed=*/false);
        ASSERT_TRUE(box.wait());
        EXPECT_THAT(host.asked,
                    ElementsAre("Create Index", HasSubstr("box.mbox is not currently indexed.  Would"), "Yes",
                                "No", "No Forever"));
        EXPECT_EQ(box.store->isIndexed(), row.isIndexed);
        host.asked.clear();
        box.reopen();
        EXPECT_EQ(host.asked.empty(), row.isIndexed || row.remembers);
    }
    UserDefaults::standard().removeArguments();
    Defaults::sharedInstance().setObject({}, "NeverCreateIndexes");
}

}  // namespace
}  // namespace lorvale
