#include "mail/stores/MessageSort.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <string>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

/// What a message is sorted by: a folded text or nothing, whose order is that of compareIgnoringCase().
using TextKey = std::optional<std::string>;

std::optional<std::string> headerText(Message& message, std::string_view key) {
    const auto value = message.headers()->firstObjectForKey(key);
    const auto* const text = value ? std::get_if<std::string>(&*value) : nullptr;
    return text != nullptr ? std::optional(*text) : std::nullopt;
}

TextKey subjectKey(Message& message) {
    const auto subject = headerText(message, "subject");
    if (!subject) return std::nullopt;
    return foldCase(stringByRemovingReAndFwd(*subject));
}

TextKey senderKey(Message& message) {
    const auto sender = headerText(message, "from");
    if (!sender) return std::nullopt;
    return foldCase(addressComment(*sender));
}

/// Says that a message without the header comes before any other, also before another one without it.  Callers
/// show such messages first and have come to rely on that; that the answer is no order is dealt with in
/// sortMessages().
int compareKeys(const TextKey& a, const TextKey& b) {
    if (!a) return -1;
    if (!b) return 1;
    return a->compare(*b);
}

template <class T>
int compareNumbers(T a, T b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

/// One message on its way through a sort.  The date is found when a tie first asks for it.
class Entry {
public:
    Entry(std::shared_ptr<Message> message, std::size_t index) : _message(std::move(message)), _index(index) {}

    std::shared_ptr<Message>& message() { return _message; }
    void setText(TextKey text) { _text = std::move(text); }

    int compareTexts(Entry& other) {
        // Unlike compareKeys(): two messages without the text are the same, so that a stable sort is sound.
        if (!_text && !other._text) return 0;
        if (const auto result = compareKeys(_text, other._text); result != 0) return result;
        return compareDates(other);
    }
    int compareSizes(Entry& other) {
        const auto result = compareNumbers(_message->messageSize(), other._message->messageSize());
        return result != 0 ? result : compareDates(other);
    }
    int compareDates(Entry& other) {
        const auto result = compareNumbers(date(), other.date());
        return result != 0 ? result : compareNumbers(_index, other._index);
    }

private:
    std::int64_t date() {
        if (!_date) {
            const auto headers = _message->headers();
            const bool wasLoaded = headers->hasAllHeaders();
            _date = headers->dateReceived().secondsSince1970();
            // The envelope line stands among all the headers, and those of a whole mailbox are too much to
            // keep.
            if (!wasLoaded) headers->flushCachedData();
        }
        return *_date;
    }

    std::shared_ptr<Message> _message;
    std::size_t _index;  // in the store
    TextKey _text;
    std::optional<std::int64_t> _date;
};

struct SortOrder {
    std::string_view name;
    TextKey (*text)(Message&);  // null for an order that needs none
    int (Entry::*compare)(Entry&);
};
constexpr SortOrder kSortOrders[] = {
    {MessageStoreSortByTitle, subjectKey, &Entry::compareTexts},
    {MessageStoreSortByAuthor, senderKey, &Entry::compareTexts},
    {MessageStoreSortBySize, nullptr, &Entry::compareSizes},
    {MessageStoreSortByCreationDate, nullptr, &Entry::compareDates},
};

std::vector<Entry> entriesOf(const MessageList& messages, const MessageStore& store) {
    const auto all = store.allMessages();
    std::vector<Entry> entries;
    entries.reserve(messages.size());
    for (const auto& message : messages) entries.emplace_back(message, all.indexOf(*message));
    return entries;
}

}  // namespace

int _compareMsgsByDate(Message& a, Message& b, const MessageStore& store) {
    const auto result = compareNumbers(a.headers()->dateReceived().secondsSince1970(),
                                       b.headers()->dateReceived().secondsSince1970());
    if (result != 0) return result;
    return store.indexOfMessage(a) < store.indexOfMessage(b) ? -1 : 1;
}

int _compareMsgsBySubject(Message& a, Message& b, const MessageStore& store) {
    const auto result = compareKeys(subjectKey(a), subjectKey(b));
    return result != 0 ? result : _compareMsgsByDate(a, b, store);
}

int _compareMsgsBySender(Message& a, Message& b, const MessageStore& store) {
    const auto result = compareKeys(senderKey(a), senderKey(b));
    return result != 0 ? result : _compareMsgsByDate(a, b, store);
}

int _compareMsgsBySize(Message& a, Message& b, const MessageStore& store) {
    const auto result = compareNumbers(a.messageSize(), b.messageSize());
    return result != 0 ? result : _compareMsgsByDate(a, b, store);
}

MessageList sortedMessages(const MessageList& messages, std::string_view sortOrder, const MessageStore& store) {
    const auto* const order = std::ranges::find(kSortOrders, sortOrder, &SortOrder::name);
    if (order == std::ranges::end(kSortOrders)) return messages;
    auto entries = entriesOf(messages, store);
    if (order->text != nullptr) {
        for (auto& entry : entries) entry.setText(order->text(*entry.message()));
    }
    // Positions are sorted, so that an entry stays where it is and can find its date in the middle of it.
    std::vector<std::size_t> places(entries.size());
    std::iota(places.begin(), places.end(), std::size_t{0});
    std::ranges::stable_sort(
        places, [&](std::size_t a, std::size_t b) { return (entries[a].*order->compare)(entries[b]) < 0; });
    std::vector<std::shared_ptr<Message>> sorted;
    sorted.reserve(places.size());
    for (const auto place : places) sorted.push_back(entries[place].message());
    return sorted;
}

}  // namespace lorvale
