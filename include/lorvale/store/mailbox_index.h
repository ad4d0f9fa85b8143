#pragma once
#include <functional>
#include <memory>

#include "lorvale/export.h"
#include "lorvale/message/list.h"

namespace lorvale {

class Message;
class MessageStore;

/// The search index of one mailbox, and whatever keeps it up to date, as its store sees them.  The search
/// folder supplies the class and registers its maker; without one no store is indexed.
///
/// Belongs to its store and refers to it weakly.  The store calls it on its own thread; what an implementation
/// does in the background is its own business.
class LORVALE_EXPORT MailboxIndex {
public:
    using Maker = std::function<std::shared_ptr<MailboxIndex>(const std::shared_ptr<MessageStore>&)>;
    /// Serves the stores that are opened afterwards.  An empty function registers none.  Answers the one
    /// before. Any thread.
    static Maker registerMaker(Maker make);
    /// The index of a store that is being opened, before its file is looked at; null when there is no maker.
    static std::shared_ptr<MailboxIndex> indexForStore(const std::shared_ptr<MessageStore>& store);

    MailboxIndex(const MailboxIndex&) = delete;
    MailboxIndex& operator=(const MailboxIndex&) = delete;
    virtual ~MailboxIndex();

    /// At the end of the store's opening: may begin indexing, or ask the user whether to.
    virtual void storeDidOpen() = 0;
    /// At the end of its closing, which a destructor may have called: the store may have no share left.
    virtual void storeDidClose() = 0;

    // Behind the operations of the store with these names.
    virtual bool isIndexed() const = 0;
    virtual void setIsIndexed(bool indexed) = 0;
    virtual void updateIndex() = 0;
    virtual void updateIndexInBackground() = 0;
    virtual void stopUpdatingIndex() = 0;
    virtual bool isUpdatingIndex() const = 0;
    virtual void stopBackgroundActivity() = 0;
    virtual void addMessagesToIndex(const MessageList& messages) = 0;
    virtual void removeMessagesFromIndex(const MessageList& messages) = 0;
    /// Only messages for which this holds are added; the others are looked at again at each update.  Before
    /// storeDidOpen().  Called by any thread.
    virtual void indexOnly(std::function<bool(const Message&)> isReady);
    /// The IDs in it name other messages now: it is thrown away, and made anew where it is kept.
    virtual void forgetAll();
    /// Makes the changes last.
    virtual void flushToDisk() = 0;

protected:
    MailboxIndex() = default;
};

}  // namespace lorvale
