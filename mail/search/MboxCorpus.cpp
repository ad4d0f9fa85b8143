#include "mail/search/MboxCorpus.h"

#include <algorithm>

#include "lorvale/message.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/store/message_store.h"
#include "lorvale/toolkit/storage/block.h"
#include "mail/search/IndexedText.h"
#include "mail/search/MboxDoc.h"

namespace lorvale {

MboxCorpus::MboxCorpus(const std::shared_ptr<MessageStore>& store, IndexedForm form, std::uint32_t typeTag)
    : IACorpus(typeTag), _form(form) {
    setStore(store);
}

MboxCorpus::~MboxCorpus() = default;

void MboxCorpus::setStore(const std::shared_ptr<MessageStore>& store) {
    _store = store;
    _storePath = store != nullptr ? store->storePath() : std::string();
}

std::unique_ptr<brindle::IADoc> MboxCorpus::GetProtoDoc() const {
    return std::make_unique<MboxDoc>();
}

std::unique_ptr<brindle::IADocText> MboxCorpus::GetDocText(const brindle::IADoc* doc) const {
    const auto& mboxDoc = static_cast<const MboxDoc&>(*doc);
    if (mboxDoc.text() != nullptr) return std::make_unique<MboxDocText>(mboxDoc.text());
    const auto store = _store.lock();
    if (store == nullptr) return nullptr;
    const auto message = mboxDoc.message() != nullptr || !mboxDoc.messageID()
                             ? mboxDoc.message()
                             : store->messageForMessageID(*mboxDoc.messageID());
    auto text = message != nullptr ? indexedText(*message, _form) : std::nullopt;
    return std::make_unique<MboxDocText>(
        std::make_shared<const std::string>(std::move(text).value_or(std::string())));
}

std::unique_ptr<brindle::IADocIterator> MboxCorpus::GetDocIterator() const {
    auto store = _store.lock();
    return store != nullptr ? std::make_unique<MboxIterator>(std::move(store)) : nullptr;
}

std::uint32_t MboxCorpus::InitialSize() const {
    const auto length = static_cast<std::uint32_t>(_storePath.size());
    return IACorpus::InitialSize() + brindle::VInt32Size(length) + length;
}

std::uint32_t MboxCorpus::UpdateSize() const {
    const auto length = static_cast<std::uint32_t>(_storePath.size());
    return IACorpus::UpdateSize() + brindle::VInt32Size(length) + length;
}

void MboxCorpus::StorePath(brindle::IAOutputBlock* output) const {
    const auto length = static_cast<std::uint32_t>(_storePath.size());
    brindle::VInt32Write(length, output);
    output->WriteBuffer(_storePath.data(), length);
}

brindle::IACorpus* MboxCorpus::Initializing(brindle::IAOutputBlock* output) {
    IACorpus::Initializing(output);
    StorePath(output);
    return this;
}

brindle::IACorpus* MboxCorpus::Updating(brindle::IAOutputBlock* output) {
    IACorpus::Updating(output);
    StorePath(output);
    return this;
}

brindle::IACorpus* MboxCorpus::Opening(brindle::IAInputBlock* input) {
    IACorpus::Opening(input);
    const auto length = brindle::VInt32Read(input);
    IAAssertion(length <= input->Remaining(), "path longer than its block", brindle::StorageInvalid);
    std::string dropped(length, '\0');
    input->ReadBuffer(dropped.data(), length);
    return this;
}

std::shared_ptr<Message> MboxCorpus::messageForMessageID(std::string_view messageID) const {
    const auto store = _store.lock();
    return store != nullptr ? store->messageForMessageID(messageID) : nullptr;
}

MboxIterator::MboxIterator(std::shared_ptr<MessageStore> store) : _store(std::move(store)) {
    const auto all = _store->allMessages();
    _messages.reserve(all.size());
    for (const auto& message : all) _messages.push_back({message->messageID(), message});
    std::ranges::stable_sort(_messages, {}, &Named::messageID);
    const auto repeated = std::unique(_messages.begin(), _messages.end(),
                                      [](const auto& a, const auto& b) { return a.messageID == b.messageID; });
    if (repeated == _messages.end()) return;
    log("Some messages in %@ are duplicated.  Only first occurances will be indexed", _store->storePath());
    _messages.erase(repeated, _messages.end());
}

MboxIterator::~MboxIterator() = default;

std::unique_ptr<brindle::IADoc> MboxIterator::GetNextDoc() {
    if (!_store->isUpdatingIndex() || !_store->shouldProcessInBackground()) return nullptr;
    if (_nextIndex == _messages.size()) return nullptr;
    auto& [messageID, message] = _messages[_nextIndex++];
    showIndexingStatus(*_store, *message, _nextIndex, _messages.size());
    return std::make_unique<MboxDoc>(std::move(messageID), std::move(message));
}

void showIndexingStatus(MessageStore& store, Message& message, std::size_t current, std::size_t total) {
    auto* const agent = currentUserAgent();
    if (agent == nullptr) return;
    // Headers of its own, so that the message keeps none for a line that is gone in a moment.
    auto subject = MessageHeaders::headersForMessage(message.shared_from_this())->subject();
    if (subject.empty()) subject = LVLocalizedString("No subject");
    agent->displayStatus(formatText(LVLocalizedString("%@ %d of %d: %@"), LVLocalizedString("Indexing"),
                                    current, total, subject),
                         &store);
}

}  // namespace lorvale
