/// What is fetched of messages.  In the classic dialect answers wait under the numbers of their messages until
/// the command is done; in the standard one each is looked at as it comes.
#include <algorithm>
#include <unordered_map>

#include "lorvale/imap/connection.h"
#include "lorvale/imap/words.h"
#include "lorvale/platform/log.h"
#include "mail/imap/AskedItems.h"
#include "mail/imap/Digits.h"
#include "mail/imap/Engine.h"
#include "mail/imap/FetchParsing.h"
#include "mail/imap/MessageSets.h"
#include "mail/imap/StoreNames.h"

namespace lorvale {

namespace {

/// Which messages a set names, for those that come in an answer.
class Members {
public:
    explicit Members(const IMAPMessageSet& set) : _numbers(set.numbers), _allFrom(set.allFrom) {
        std::ranges::sort(_numbers);
    }
    /// "500:*" names the last message even where that is the 400th; nobody means it.
    bool contains(std::uint32_t number) const {
        return (_allFrom && number >= *_allFrom) || std::ranges::binary_search(_numbers, number);
    }

private:
    std::vector<std::uint32_t> _numbers;
    const std::optional<std::uint32_t> _allFrom;
};

/// How many messages a set can name at most, in a mailbox that has so many.
std::size_t countOf(const IMAPMessageSet& set, std::size_t inMailbox) {
    return set.numbers.size() + (set.allFrom ? std::min(inMailbox, kMostMessages) : 0);
}

std::vector<std::string> textsOf(const IMAPMessageSet& set) {
    auto texts = setsOf(set.numbers, MailDialect::standard);
    if (set.allFrom) texts.push_back(std::to_string(*set.allFrom) + ":*");
    return texts;
}

}  // namespace

void IMAPConnection::setNumbersAreUIDs(bool uids) {
    _numbersAreUIDs = uids && _engine->isStandard();
}

std::string IMAPConnection::numbered(std::string_view command) const {
    return (_numbersAreUIDs ? "UID " : "") + std::string(command);
}

template <class Value>
IMAPConnection::Fetched<Value> IMAPConnection::_processFetchCommand(const Numbers& numbers,
                                                                    std::string_view item,
                                                                    const Parser<Value>& processResults) {
    if (numbers.empty()) return std::nullopt;
    const CommandArgument arguments[] = {messageSet(numbers, dialect()), item};
    Fetched<Value> found;
    if (_engine->ask("FETCH", arguments).isOK()) takeFetched(numbers, processResults, found.emplace());
    _engine->didFinishCommand();
    return found;
}

template <class Value>
void IMAPConnection::takeFetched(const Numbers& numbers, const Parser<Value>& processResults,
                                 std::vector<Value>& found) {
    for (const auto number : numbers) {
        const auto key = std::to_string(number);
        const auto texts = _engine->look(key);
        if (texts.empty()) continue;
        if (auto value = processResults(texts)) {
            found.push_back(*std::move(value));
            (void)_engine->take(key);
        }
    }
}

bool IMAPConnection::receiveFetched(const IMAPMessageSet& messages, std::string_view items,
                                    std::string_view modifier, const TryTake& take) {
    const AskedItems asked(items);
    const Members members(messages);
    const auto receive = [&](std::string_view key, const Data& text) {
        const auto number = numberIn(key);
        auto list = parseRawFetchResponse(text, MailDialect::standard);
        if (!number || !list || !asked.areIn(list->list())) return false;
        const IMAPFetched message(*number, *std::move(list));
        const auto name = _numbersAreUIDs ? message.uid() : number;
        return name && members.contains(*name) && take(*name, message, text);
    };
    // An open set ends where the mailbox does: whoever goes on behind that would go on for ever.
    const auto expected = countOf(messages, _engine->messageCount());
    bool isOK = true;
    for (const auto& set : textsOf(messages)) {
        std::vector<CommandArgument> arguments = {set, items};
        if (!modifier.empty()) arguments.emplace_back(modifier);
        isOK = isOK && _engine->receive(numbered("FETCH"), arguments, expected, receive).isOK();
    }
    _engine->didFinishCommand();
    return isOK;
}

/// In the order of the numbers; of several answers the last one that has a value counts.
template <class Value>
IMAPConnection::Fetched<Value> IMAPConnection::fetchValues(const Numbers& numbers, std::string_view item,
                                                           const ValueOf<Value>& valueOf) {
    if (numbers.empty() || !_engine->isStandard()) return std::nullopt;
    std::unordered_map<std::uint32_t, std::size_t> places;
    for (std::size_t i = 0; i < numbers.size(); ++i) places.try_emplace(numbers[i], i);
    std::vector<std::optional<Value>> values(numbers.size());
    const auto take = [&](std::uint32_t name, const IMAPFetched& message, const Data& text) {
        auto value = valueOf(message, text);
        if (!value) return false;
        values[places.at(name)] = std::move(value);
        return true;
    };
    if (!receiveFetched(numbers, item, {}, take)) return std::nullopt;
    Fetched<Value> found(std::in_place);
    for (auto& value : values)
        if (value) found->push_back(*std::move(value));
    return found;
}

IMAPConnection::Fetched<IMAPValue> IMAPConnection::fetchFlags(const Numbers& forMessageNumbers) {
    if (!_engine->isStandard())
        return _processFetchCommand<IMAPValue>(forMessageNumbers, IMAPDataFlags, [](auto texts) {
            return parseFlagsResponse(texts, MailDialect::classic);
        });
    return fetchItem(forMessageNumbers, IMAPDataFlags);
}

IMAPConnection::Fetched<std::string> IMAPConnection::fetchSizes(const Numbers& forMessageNumbers) {
    if (_engine->isStandard()) return fetchText(forMessageNumbers, IMAPDataRFC822Size);
    return _processFetchCommand<std::string>(forMessageNumbers, IMAPDataRFC822Size, [](auto texts) {
        return parseRFC822SizeResponse(texts, MailDialect::classic);
    });
}

IMAPConnection::Fetched<std::string> IMAPConnection::fetchUIDs(const Numbers& forMessageNumbers) {
    if (_engine->isStandard()) return fetchText(forMessageNumbers, IMAPDataUID);
    return _processFetchCommand<std::string>(forMessageNumbers, IMAPDataUID, [](auto texts) {
        return parseUIDsResponse(texts, MailDialect::classic);
    });
}

IMAPConnection::Fetched<IMAPValue> IMAPConnection::fetchItem(const Numbers& numbers, std::string_view item) {
    return fetchValues<IMAPValue>(numbers, item, [&](const IMAPFetched& message, const Data&) {
        const auto* const found = message.item(item);
        return found == nullptr ? std::nullopt : std::optional(*found);
    });
}

IMAPConnection::Fetched<std::string> IMAPConnection::fetchText(const Numbers& numbers, std::string_view item) {
    return fetchValues<std::string>(numbers, item, [&](const IMAPFetched& message, const Data&) {
        const auto* const found = message.item(item);
        return found == nullptr ? std::nullopt : std::optional(std::string(found->text()));
    });
}

IMAPConnection::Fetched<CachedHeaders> IMAPConnection::fetchEnvelopes(const Numbers& forMessageNumbers) {
    if (!_engine->isStandard())
        return _processFetchCommand<CachedHeaders>(forMessageNumbers, IMAPDataEnvelope, [](auto texts) {
            return std::optional(parseEnvelopeResponse(texts, MailDialect::classic));
        });
    return fetchValues<CachedHeaders>(
        forMessageNumbers, IMAPDataEnvelope,
        [](const IMAPFetched& message, const Data&) { return std::optional(message.envelope()); });
}

IMAPConnection::Fetched<IMAPValue> IMAPConnection::fetchBodyStructures(const Numbers& forMessageNumbers) {
    if (_engine->isStandard()) return fetchItem(forMessageNumbers, "BODYSTRUCTURE");
    return _processFetchCommand<IMAPValue>(forMessageNumbers, IMAPDataBody, [](auto texts) {
        return parseBodyResponse(texts, MailDialect::classic);
    });
}

IMAPConnection::Fetched<IMAPBodyPart> IMAPConnection::fetchParts(const Numbers& forMessageNumbers) {
    return fetchValues<IMAPBodyPart>(forMessageNumbers, "BODYSTRUCTURE",
                                     [](const IMAPFetched& message, const Data&) {
                                         const auto* const found = message.item("BODYSTRUCTURE");
                                         return found ? bodyPartOfStructure(*found) : std::nullopt;
                                     });
}

IMAPConnection::Fetched<IMAPConnection::CacheInfo> IMAPConnection::fetchMessageCacheInfo(
    const Numbers& forMessageNumbers) {
    constexpr std::string_view kItems = "(RFC822.SIZE BODY.PEEK[HEADER.FIELDS (DATE SUBJECT FROM)])";
    if (!_engine->isStandard())
        return _processFetchCommand<CacheInfo>(forMessageNumbers, kItems, [](auto texts) {
            return parseMessageCacheInfoResponse(texts, MailDialect::classic);
        });
    return fetchValues<CacheInfo>(forMessageNumbers, kItems, [](const IMAPFetched& message, const Data&) {
        return cacheInfoOfItems(message.items());
    });
}

IMAPConnection::Fetched<Data> IMAPConnection::fetchSection(std::string_view section,
                                                           const Numbers& forMessageNumbers, bool setSeenFlag,
                                                           const Parser<Data>& parser) {
    const auto item = formatText("BODY%@[%@]", setSeenFlag ? std::string_view() : IMAPDataPeek, section);
    if (!_engine->isStandard()) return _processFetchCommand<Data>(forMessageNumbers, item, parser);
    return fetchValues<Data>(forMessageNumbers, item,
                             [&](const IMAPFetched&, const Data& text) { return parser(std::span(&text, 1)); });
}

IMAPConnection::Fetched<std::string> IMAPConnection::fetchRawData(const Numbers& forMessageNumbers,
                                                                  bool setSeenFlag) {
    if (_engine->isStandard())
        return fetchValues<std::string>(forMessageNumbers, setSeenFlag ? "BODY[]" : "BODY.PEEK[]",
                                        [](const IMAPFetched& message, const Data&) {
                                            const auto whole = message.section();
                                            return whole ? std::optional(withNewlines(whole->view()))
                                                         : std::nullopt;
                                        });
    const auto headers = fetchSection(IMAPDataSectionHeader, forMessageNumbers, setSeenFlag, [](auto texts) {
        return parseHeaderSectionResponse(texts, MailDialect::classic);
    });
    const auto bodies = fetchSection(IMAPDataSectionText, forMessageNumbers, setSeenFlag, [](auto texts) {
        return parseTextSectionResponse(texts, MailDialect::classic);
    });
    if (!headers || !bodies || headers->size() != bodies->size()) {
        log("Didn't get the same number of headers and bodies!!!");
        return std::nullopt;
    }
    std::vector<std::string> messages;
    for (std::size_t i = 0; i < headers->size(); ++i)
        messages.push_back(withNewlines((*headers)[i].view()) + withNewlines((*bodies)[i].view()));
    return messages;
}

bool IMAPConnection::fetchEach(const IMAPMessageSet& messages, std::string_view items, const TakeFetched& take,
                               std::optional<std::uint64_t> changedSince) {
    if (!_engine->isStandard() || (messages.numbers.empty() && !messages.allFrom)) return false;
    const auto modifier = changedSince ? formatText("(CHANGEDSINCE %d)", *changedSince) : std::string();
    return receiveFetched(messages, items, modifier,
                          [&](std::uint32_t, const IMAPFetched& message, const Data&) {
                              take(message);
                              return true;
                          });
}

}  // namespace lorvale
