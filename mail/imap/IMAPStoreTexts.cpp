/// The texts of messages: from the mirror, else from the server; and the headers of a listing.
#include <algorithm>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "base/text/Ascii.h"
#include "lorvale/imap/store.h"
#include "lorvale/imap/words.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/imap/Digits.h"
#include "mail/imap/FetchParsing.h"
#include "mail/imap/ServerLock.h"
#include "mail/imap/StoreNames.h"

namespace lorvale {

std::string IMAPStore::messageIDForMessage(Message& message) {
    const auto* const listed = dynamic_cast<const IMAPMessage*>(&message);
    return listed != nullptr ? listed->uid() : MessageStore::messageIDForMessage(message);
}

std::shared_ptr<Message> IMAPStore::messageForMessageID(std::string_view messageID) {
    const auto all = allMessages();
    const auto found = std::ranges::find_if(
        all, [&](const auto& message) { return static_cast<IMAPMessage&>(*message).uid() == messageID; });
    return found == all.end() ? nullptr : *found;
}

std::shared_ptr<MessageFlags> IMAPStore::flagsForMessage(Message&) {
    return std::make_shared<MessageFlags>();
}

CachedHeaders IMAPStore::cachedHeadersForMessage(Message& message) {
    const auto* const listed = dynamic_cast<const IMAPMessage*>(&message);
    if (listed != nullptr && isStandard()) return listed->listedHeaders();
    const auto index = indexOfMessage(message);
    if (index >= totalCount() || !checkConnectionToServer()) return {};
    log("Fetching headers for message: %d", index);
    const ServerTurn turn(*_lock);
    // The classic dialect sends the place for the number, one less than it should be: what programs have kept
    // of such headers is looked up the same way.
    const auto envelopes = _connection->fetchEnvelopes({static_cast<std::uint32_t>(index)});
    return envelopes && !envelopes->empty() ? envelopes->front() : CachedHeaders();
}

std::optional<Data> IMAPStore::allHeadersForMessage(Message& message) {
    const auto data = _dataForMessage(message);
    if (!data) {
        message.noteMissing(MessagePart::headers);
        return std::nullopt;
    }
    const auto end = data->view().find("\n\n");
    if (end != std::string_view::npos) return data->subdata(Range{0, end + 2});
    log("IMAPStore: couldn't find headers");
    return std::nullopt;
}

std::optional<Data> IMAPStore::bodyForMessage(Message& message) {
    const auto data = _dataForMessage(message);
    if (!data) {
        message.noteMissing(MessagePart::body);
        return std::nullopt;
    }
    const auto end = data->view().find("\n\n");
    if (end != std::string_view::npos) return data->subdata(Range{end + 2, data->size() - end - 2});
    log("IMAPStore: couldn't find body");
    return std::nullopt;
}

std::optional<Data> IMAPStore::_dataForMessage(Message& message) {
    auto text = _stringForMessage(message);
    if (!text) return std::nullopt;
    return bytesOfServerText(*std::move(text), _connection->dialect());
}

/// A UID that is no number names no file.
std::string IMAPStore::cacheFileOf(const std::string& uid) const {
    if (uid.empty() || !std::ranges::all_of(uid, isAsciiDigit)) return {};
    return stringByAppendingPathComponent(pathOf(kMirrorName), uid);
}

std::optional<MessageList> IMAPStore::messagesFound(const IMAPSearchKeys& keys) {
    if (!isStandard() || !checkConnectionToServer()) return std::nullopt;
    std::optional<Numbers> found;
    {
        const ServerTurn turn(*_lock);
        found = _connection->searchNumbers(keys);
    }
    if (!found) return std::nullopt;
    std::ranges::sort(*found);
    std::vector<std::shared_ptr<Message>> messages;
    for (const auto& message : allMessages()) {
        const auto uid = numberIn(static_cast<IMAPMessage&>(*message).uid());
        if (uid && std::ranges::binary_search(*found, *uid)) messages.push_back(message);
    }
    return MessageList(std::move(messages));
}

std::optional<IMAPBodyPart> IMAPStore::structureOfMessage(Message& message) {
    const auto numbers = numbersOf(MessageList{message.shared_from_this()});
    if (!isStandard() || numbers.empty() || !checkConnectionToServer()) return std::nullopt;
    const ServerTurn turn(*_lock);
    auto parts = _connection->fetchParts(numbers);
    return parts && parts->size() == 1 ? std::optional(std::move(parts->front())) : std::nullopt;
}

bool IMAPStore::isMirrored(const Message& message) const {
    const auto* const listed = dynamic_cast<const IMAPMessage*>(&message);
    const auto file = listed != nullptr ? cacheFileOf(listed->uid()) : std::string();
    return !file.empty() && FileSystem::current().exists(file);
}

std::optional<std::string> IMAPStore::_stringForMessage(Message& message) {
    auto* const listed = dynamic_cast<IMAPMessage*>(&message);
    if (listed == nullptr) return std::nullopt;
    const auto file = cacheFileOf(listed->uid());
    if (!file.empty())
        if (const auto kept = FileSystem::current().readFile(file)) return kept->toString();
    // By number a message is only known while the list is the server's.
    if ((!_isSynchronized && !isStandard()) || !checkConnectionToServer()) return std::nullopt;
    auto text = fetchText(*listed, /*setSeenFlag=*/true);
    const auto* const owner = imapAccount();
    if (!text || file.empty() || (owner != nullptr && owner->cachePolicy() == IMAPCachePolicy::noMessages))
        return text;
    const auto made = makeDirectories(pathOf(kMirrorName), kMirrorFolderMode);
    const auto written = made ? writeFileAtomically(file, *text, kMirrorFileMode) : made;
    if (!written) log("%@", written.text());
    return text;
}

/// The server has marked it, and says so in the answer with the text.
void IMAPStore::noteRead(IMAPMessage& message) {
    const auto self = std::static_pointer_cast<IMAPStore>(shared_from_this());
    userAgentOrAbsent().performInMainThread([weak = std::weak_ptr(self), read = message.shared_from_this()] {
        const auto store = weak.lock();
        if (!store || store->isClosed()) return;
        read->messageFlags()->setRead(true);
        store->scheduleFlagsChanged();
    });
}

std::optional<std::string> IMAPStore::fetchText(IMAPMessage& message, bool setSeenFlag) {
    const ServerTurn turn(*_lock);
    const auto numbers = numbersOf(MessageList{message.shared_from_this()});
    if (isStandard()) {
        std::optional<std::string> found;
        bool isReadThere = false;
        const auto item = setSeenFlag ? "BODY[]" : "BODY.PEEK[]";
        (void)_connection->fetchEach(numbers, item, [&](const IMAPFetched& fetched) {
            if (const auto text = fetched.section()) found = withNewlines(text->view());
            const auto flags = fetched.flags().value_or(std::vector<std::string_view>());
            isReadThere = isReadThere || std::ranges::any_of(flags, [](std::string_view flag) {
                              return equalIgnoringAsciiCase(flag, IMAPFlagSeen);
                          });
        });
        if (isReadThere && !message.messageFlags()->isRead()) noteRead(message);
        return found;
    }
    auto texts = numbers.empty() ? std::nullopt : _connection->fetchRawData(numbers, setSeenFlag);
    return texts && texts->size() == 1 ? std::optional(std::move(texts->front())) : std::nullopt;
}

}  // namespace lorvale
