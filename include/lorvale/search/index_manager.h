#pragma once
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/message/list.h"
#include "lorvale/platform/mutex.h"

namespace lorvale {

class MboxIndex;
class MessageStore;

/// What is searched for, and how.
struct MessageQuery {
    /// Any text; or with `isBoolean` words with "and", "or", "not" and parentheses.
    std::string text;
    bool isBoolean = false;
    /// 0 is the user default "MaximumSearchHits", or 100 where that is below 1.
    std::uint32_t maximumHits = 0;
};

/// A message that was found.
struct MessageHit {
    std::shared_ptr<Message> message;     ///< null for one that has left its mailbox since it was indexed
    std::shared_ptr<MessageStore> store;  ///< where it was found
    float score = 0;                      ///< 1 for the best of the hits
};

struct MessageHits {
    /// Best first; nullopt when there was no index to search.
    std::optional<std::vector<MessageHit>> hits;
    std::string error;  ///< why a search has failed, for the user; empty otherwise
};

/// The door to the search indexes of mailboxes.  A mailbox is indexed while it is open, when it was told so
/// once (MessageStore::setIsIndexed()) or the user wants it of all; the index lies in its directory as
/// "mbox.index" and is kept in line with it by a thread of its own.  An index is a cache of the mail: one that
/// is damaged is thrown away and made anew.
///
/// Any thread may search.  A search waits for at most one step of the indexing and then sees one state of all
/// mailboxes from its start to its end.
///
/// New indexes are made with the analysis that the user default "IndexAnalysis" names by its tag: "Eng1",
/// English words of ASCII letters, where it is not set, or "Uni1", words of any script.  An index that was made
/// with another one is made anew when it is opened.
class LORVALE_EXPORT IndexManager {
public:
    static IndexManager& indexManager();

    // The file of a store, open or not.
    static std::string pathForIndexInStore(const MessageStore& store);
    static bool indexExistsForStore(const MessageStore& store);
    static void removeIndexForStore(const MessageStore& store);
    /// Opens it.  Null when it is not there and is not to be made, and when it cannot be opened.  One thread at
    /// a time may have it open for a store, which is the store's own once that is indexed.
    static std::shared_ptr<MboxIndex> mboxIndexForStore(const std::shared_ptr<MessageStore>& store,
                                                        bool create = false);

    IndexManager();
    ~IndexManager();
    IndexManager(const IndexManager&) = delete;
    IndexManager& operator=(const IndexManager&) = delete;

    // The open stores that have an index; stores enter and leave by themselves.  None of them is kept alive.
    void registerIndexedStore(const std::shared_ptr<MessageStore>& store);
    void unregisterIndexedStore(const MessageStore& store);
    std::vector<std::shared_ptr<MessageStore>> indexedStores() const;

    /// The best messages of one mailbox; of all that are indexed and open for a null store, and for one that is
    /// not indexed.  Nullopt when there was no index to search.  `ranks`, unless null, gets the scores, also of
    /// messages that have left their mailbox since, for which there is no message in the result.
    std::optional<MessageList> messagesInStore(const std::shared_ptr<MessageStore>& store,
                                               std::string_view containingString,
                                               std::vector<float>* ranks = nullptr, bool booleanSearch = false,
                                               std::string* errorString = nullptr);
    /// The best messages of several mailboxes in one list; those that are not indexed are passed over.
    MessageHits search(std::span<const std::shared_ptr<MessageStore>> stores, const MessageQuery& query);

    /// What a boolean search makes of what was typed, for the parser of the toolkit: words in lower case,
    /// "and", "or" and "not" as "&", "|" and "!".
    static std::string processBooleanSearchString(std::string_view typed);

    /// Waits until the index of a store has nothing left to do.  False when the deadline came first.  Also true
    /// for a store that is not indexed.
    static bool waitUntilIdle(MessageStore& store, std::chrono::steady_clock::time_point deadline);
    /// Whether the store's index is open, so that it can be searched.
    static bool isSearchable(const MessageStore& store);
    /// How many messages are in the store's open index.
    static std::uint32_t indexedCount(const MessageStore& store);
    /// Whether the index is known to have all mail that lies in the mailbox now.  False is no proof of the
    /// contrary: it becomes true when a store that keeps the index is closed, some seconds after its mail was
    /// written.
    static bool hasAllMessages(const MessageStore& store);
    struct Progress {
        std::size_t reached = 0, total = 0;  ///< messages of the batch at hand
    };
    static Progress progress(const MessageStore& store);

private:
    struct Indexed {
        const MessageStore* identity;  // never followed
        std::weak_ptr<MessageStore> store;
    };
    std::optional<MessageList> performSearchInStore(const std::shared_ptr<MessageStore>& store,
                                                    std::string_view forString, std::vector<float>* ranks,
                                                    bool booleanSearch, std::string* errorString);

    mutable Mutex _mutex;
    std::vector<Indexed> _indexedStores LORVALE_GUARDED_BY(_mutex);
};

}  // namespace lorvale
