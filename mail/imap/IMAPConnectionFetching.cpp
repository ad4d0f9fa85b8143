/// What is fetched of messages.
#include "base/text/Ascii.h"
#include "lorvale/imap/connection.h"
#include "lorvale/imap/words.h"
#include "lorvale/platform/log.h"
#include "mail/imap/Engine.h"
#include "mail/imap/FetchParsing.h"
#include "mail/imap/MessageSets.h"

namespace lorvale {

template <class Value>
IMAPConnection::Fetched<Value> IMAPConnection::_processFetchCommand(const Numbers& numbers,
                                                                    std::string_view item,
                                                                    const Parser<Value>& processResults) {
    if (numbers.empty()) return std::nullopt;
    bool isOK = true;
    for (const auto& set : setsOf(numbers, dialect())) {
        const CommandArgument arguments[] = {set, item};
        isOK = isOK && _engine->ask(numbered("FETCH"), arguments).isOK();
    }
    Fetched<Value> found;
    if (isOK) takeFetched(numbers, processResults, found.emplace());
    _engine->didFinishCommand("FETCH");
    return found;
}

void IMAPConnection::setNumbersAreUIDs(bool uids) {
    _numbersAreUIDs = uids && _engine->isStandard();
}

std::string IMAPConnection::numbered(std::string_view command) const {
    return (_numbersAreUIDs ? "UID " : "") + std::string(command);
}

std::vector<std::string> IMAPConnection::keysOf(const Numbers& numbers) const {
    std::vector<std::string> keys;
    if (!_numbersAreUIDs) {
        for (const auto number : numbers) keys.push_back(std::to_string(number));
        return keys;
    }
    // Answers come under the number that the message has now; its UID is among the items.
    std::map<std::string, std::string, std::less<>> keyOfUID;
    for (const auto& [key, texts] : _engine->untagged())
        if (isAsciiDigit(key.front()))
            if (auto uid = parseUIDsResponse(texts, dialect())) keyOfUID.insert_or_assign(*std::move(uid), key);
    for (const auto number : numbers)
        if (const auto found = keyOfUID.find(std::to_string(number)); found != keyOfUID.end())
            keys.push_back(found->second);
    return keys;
}

template <class Value>
void IMAPConnection::takeFetched(const Numbers& numbers, const Parser<Value>& processResults,
                                 std::vector<Value>& found) {
    for (const auto& key : keysOf(numbers)) {
        const auto texts = _engine->look(key);
        if (texts.empty()) continue;
        if (auto value = processResults(texts)) {
            found.push_back(*std::move(value));
            (void)_engine->take(key);
        }
    }
}

IMAPConnection::Fetched<IMAPValue> IMAPConnection::fetchFlags(const Numbers& forMessageNumbers) {
    return _processFetchCommand<IMAPValue>(forMessageNumbers, IMAPDataFlags,
                                           [this](auto texts) { return parseFlagsResponse(texts, dialect()); });
}

IMAPConnection::Fetched<std::string> IMAPConnection::fetchSizes(const Numbers& forMessageNumbers) {
    return _processFetchCommand<std::string>(forMessageNumbers, IMAPDataRFC822Size, [this](auto texts) {
        return parseRFC822SizeResponse(texts, dialect());
    });
}

IMAPConnection::Fetched<std::string> IMAPConnection::fetchUIDs(const Numbers& forMessageNumbers) {
    return _processFetchCommand<std::string>(
        forMessageNumbers, IMAPDataUID, [this](auto texts) { return parseUIDsResponse(texts, dialect()); });
}

IMAPConnection::Fetched<CachedHeaders> IMAPConnection::fetchEnvelopes(const Numbers& forMessageNumbers) {
    return _processFetchCommand<CachedHeaders>(forMessageNumbers, IMAPDataEnvelope, [this](auto texts) {
        return std::optional(parseEnvelopeResponse(texts, dialect()));
    });
}

IMAPConnection::Fetched<IMAPValue> IMAPConnection::fetchBodyStructures(const Numbers& forMessageNumbers) {
    const auto item = dialect() == MailDialect::classic ? IMAPDataBody : "BODYSTRUCTURE";
    return _processFetchCommand<IMAPValue>(forMessageNumbers, item,
                                           [this](auto texts) { return parseBodyResponse(texts, dialect()); });
}

IMAPConnection::Fetched<IMAPConnection::CacheInfo> IMAPConnection::fetchMessageCacheInfo(
    const Numbers& forMessageNumbers) {
    return _processFetchCommand<CacheInfo>(
        forMessageNumbers, "(RFC822.SIZE BODY.PEEK[HEADER.FIELDS (DATE SUBJECT FROM)])",
        [this](auto texts) { return parseMessageCacheInfoResponse(texts, dialect()); });
}

IMAPConnection::Fetched<Data> IMAPConnection::fetchSection(std::string_view section,
                                                           const Numbers& forMessageNumbers, bool setSeenFlag,
                                                           const Parser<Data>& parser) {
    const auto peek = setSeenFlag ? std::string_view() : IMAPDataPeek;
    return _processFetchCommand<Data>(forMessageNumbers, formatText("BODY%@[%@]", peek, section), parser);
}

IMAPConnection::Fetched<std::string> IMAPConnection::fetchRawData(const Numbers& forMessageNumbers,
                                                                  bool setSeenFlag) {
    const auto headers =
        fetchSection(IMAPDataSectionHeader, forMessageNumbers, setSeenFlag,
                     [this](auto texts) { return parseHeaderSectionResponse(texts, dialect()); });
    const auto bodies = fetchSection(IMAPDataSectionText, forMessageNumbers, setSeenFlag,
                                     [this](auto texts) { return parseTextSectionResponse(texts, dialect()); });
    if (!headers || !bodies || headers->size() != bodies->size()) {
        log("Didn't get the same number of headers and bodies!!!");
        return std::nullopt;
    }
    std::vector<std::string> messages;
    for (std::size_t i = 0; i < headers->size(); ++i)
        messages.push_back(withNewlines((*headers)[i].view()) + withNewlines((*bodies)[i].view()));
    return messages;
}

}  // namespace lorvale
