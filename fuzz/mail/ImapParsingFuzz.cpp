// The names, sets and values of IMAP.  A name survives its wire form, a set names the numbers it was made of,
// and an item is found in both readings of one answer where the classic one has it first.
#include <algorithm>

#include "fuzz/FuzzTarget.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/imap/AskedItems.h"
#include "mail/imap/FetchParsing.h"
#include "mail/imap/ListParsing.h"
#include "mail/imap/MailboxListing.h"
#include "mail/imap/MailboxNames.h"
#include "mail/imap/MessageSets.h"

using namespace lorvale;

namespace {

constexpr auto kClassic = MailDialect::classic, kStandard = MailDialect::standard;

void requireNameSurvives(std::string_view text) {
    if (isValidUtf8(text)) fuzz::require(fromModifiedUtf7(modifiedUtf7(text)) == text);
    const auto once = fromModifiedUtf7(text);
    fuzz::require(fromModifiedUtf7(modifiedUtf7(once)) == once || !isValidUtf8(once));
}

void requireSetSurvives(std::string_view text) {
    auto numbers = numbersOfSet(text, 1000);
    fuzz::require(numbersOfSet(messageSet(numbers, kClassic)) == numbers);
    std::ranges::sort(numbers);
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    fuzz::require(numbersOfSet(messageSet(numbers, kStandard)) == numbers);
    std::vector<std::uint32_t> together;
    for (const auto& set : messageSets(numbers, 20))
        for (const auto number : numbersOfSet(set)) together.push_back(number);
    fuzz::require(together == numbers);
}

/// Each part has a name by which it can be fetched.
void requireSections(const IMAPBodyPart& part) {
    fuzz::require(!part.section.empty());
    for (const auto& each : part.parts) requireSections(each);
    (void)part.fileName();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    [[maybe_unused]] static const auto before = setLogSink([](std::string_view) {});
    const auto text = fuzz::viewOf(bytes, size);
    requireNameSurvives(text);
    requireSetSurvives(text);
    const Data texts[] = {Data::copyOf(text)};
    PropertyList tree;
    for (const auto dialect : {kClassic, kStandard}) {
        (void)parseFlagsResponse(texts, dialect);
        (void)parseUIDsResponse(texts, dialect);
        (void)parseBodyResponse(texts, dialect);
        (void)parseTextSectionResponse(texts, dialect);
        (void)parseEnvelopeResponse(texts, dialect);
        (void)parseMessageCacheInfoResponse(texts, dialect);
        (void)responseValue(text, dialect);
        if (const auto mailbox = parseListLine(texts[0], dialect))
            addToTree(tree, *mailbox, mailbox->separator.value_or(""));
    }
    (void)parseRFC822Response(texts);
    for (const auto& value : parseValues(texts[0]))
        if (const auto part = bodyPartOfStructure(value)) requireSections(*part);
    (void)AskedItems(text).areIn(parseValues(texts[0]));
    (void)parseClassicList(texts[0], Spaces::joinWords);
    return 0;
}
