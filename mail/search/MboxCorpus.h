#pragma once
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/toolkit/corpus/corpus.h"
#include "mail/search/IndexAnalysis.h"

namespace lorvale {

class Message;
class MessageStore;

/// The messages of a mailbox as documents.  Does not keep the store alive; without one there is no text.
///
/// Stored form: the length of the store's path as a VInt32, then its bytes.  It is a record for people; nothing
/// reads it back.
class MboxCorpus : public brindle::IACorpus {
public:
    static constexpr std::uint32_t Type = brindle::IATag("MBOX");

    MboxCorpus(const std::shared_ptr<MessageStore>& store, IndexedForm form, std::uint32_t typeTag = Type);
    ~MboxCorpus() override;

    std::unique_ptr<brindle::IADoc> GetProtoDoc() const override;
    std::unique_ptr<brindle::IADocText> GetDocText(const brindle::IADoc* doc) const override;
    std::unique_ptr<brindle::IADocIterator> GetDocIterator() const override;
    std::uint32_t InitialSize() const override;
    IACorpus* Initializing(brindle::IAOutputBlock* output) override;
    IACorpus* Opening(brindle::IAInputBlock* input) override;
    std::uint32_t UpdateSize() const override;
    IACorpus* Updating(brindle::IAOutputBlock* output) override;

    /// The store's answer; null without a store.
    std::shared_ptr<Message> messageForMessageID(std::string_view messageID) const;
    IndexedForm form() const { return _form; }
    void setStore(const std::shared_ptr<MessageStore>& store);
    std::shared_ptr<MessageStore> store() const { return _store.lock(); }

private:
    void StorePath(brindle::IAOutputBlock* output) const;

    std::weak_ptr<MessageStore> _store;
    std::string _storePath;
    const IndexedForm _form;
};

/// All messages of a store by ascending ID, of several with one ID the first.  Ends early when the store stops
/// updating its index.
class MboxIterator : public brindle::IADocIterator {
public:
    explicit MboxIterator(std::shared_ptr<MessageStore> store);
    ~MboxIterator() override;
    std::unique_ptr<brindle::IADoc> GetNextDoc() override;

private:
    struct Named {
        std::string messageID;
        std::shared_ptr<Message> message;
    };
    const std::shared_ptr<MessageStore> _store;
    std::vector<Named> _messages;
    std::size_t _nextIndex = 0;
};

/// Shows "Indexing 3 of 12: SUBJECT" as the status of the store, if there is a host to show it.
void showIndexingStatus(MessageStore& store, Message& message, std::size_t current, std::size_t total);

}  // namespace lorvale
