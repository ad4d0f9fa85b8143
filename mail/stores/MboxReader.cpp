#include "lorvale/store/mbox_reader.h"

#include <deque>
#include <string>

#include "base/files/FileSystem.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/berkeley_mbox.h"
#include "lorvale/store/message_store.h"
#include "mail/stores/CachedHeaderReading.h"
#include "mail/stores/MboxPass.h"

namespace lorvale {

namespace {

class ReadMessage : public Message {
public:
    ReadMessage(const MboxEntry& entry, std::optional<Data> header)
        : _entry(entry), _header(std::move(header)) {}

    std::uint32_t messageSize() const override { return _entry.range.length; }
    const MboxEntry& entry() const { return _entry; }
    const std::optional<Data>& header() const { return _header; }

private:
    const MboxEntry _entry;
    const std::optional<Data> _header;  // nullopt: another program was quicker
};

/// What messages that were read ask for the rest.  Only messages made here have it for their source.
class ReadMailbox : public MessageSource {
public:
    ReadMailbox(std::string path, std::unique_ptr<ReadableFile> file)
        : _path(std::move(path)), _file(std::move(file)) {}

    ReadableFile& file() const { return *_file; }
    std::shared_ptr<MessageFlags> flagsForMessage(Message&) override {
        return std::make_shared<MessageFlags>();
    }
    CachedHeaders cachedHeadersForMessage(Message& message) override {
        return readCachedHeaders(message, allHeadersForMessage(message), HeaderSpelling::capitalised);
    }
    bool readsCachedHeaders() const override { return true; }
    std::optional<Data> allHeadersForMessage(Message& message) override {
        return static_cast<ReadMessage&>(message).header();
    }
    std::optional<Data> bodyForMessage(Message& message) override {
        const auto& entry = static_cast<ReadMessage&>(message).entry();
        return readMboxBytes(*_file, entry.body(), entry.bodyDigest);
    }
    std::string storePath() const override { return _path; }

private:
    const std::string _path;
    const std::unique_ptr<ReadableFile> _file;
};

}  // namespace

class MboxReader::Pass {
public:
    Pass(std::string path, std::unique_ptr<ReadableFile> file)
        : _mailbox(std::make_shared<ReadMailbox>(std::move(path), std::move(file))) {}

    std::shared_ptr<Message> next() {
        while (_found.empty() && !_ended) step();
        if (_found.empty()) return nullptr;
        const auto entry = _found.front();
        _found.pop_front();
        auto header = readMboxBytes(_mailbox->file(), entry.header(), entry.headerDigest);
        if (!header)
            log("The headers of a message of the mailbox %@ were cut off or overwritten",
                _mailbox->storePath());
        return Message::messageInStore<ReadMessage>(_mailbox, entry, std::move(header));
    }
    bool hasReadAll() const {
        return _ended &&
               (_pass.outcome() == MboxPass::Outcome::done || _pass.outcome() == MboxPass::Outcome::grown);
    }

private:
    void step() {
        if (_pass.step()) return;
        _ended = true;
        if (_pass.outcome() == MboxPass::Outcome::done || _found.empty()) return;
        // Of a file that was cut off nobody knows the end, and a message that is being appended all this moment
        // is not complete.  One that was there already is told: mail must not look gone.
        const bool wasThere = _found.back().range.location < _pass.sizeAtBeginning();
        if (!wasThere || _pass.outcome() != MboxPass::Outcome::grown) _found.pop_back();
    }

    const std::shared_ptr<ReadMailbox> _mailbox;
    std::deque<MboxEntry> _found;  // and not handed out yet
    MboxPass _pass{_mailbox->file(), [this](const MboxEntry& entry) { _found.push_back(entry); }};
    bool _ended = false;
};

std::unique_ptr<MboxReader> MboxReader::readerForPath(std::string_view path) {
    auto place = standardizePath(path);
    const auto storeClass = MessageStore::storeClassForPath(place);
    if (!storeClass || storeClass->name != BerkeleyMbox::storeClass().name) return nullptr;
    auto file = FileSystem::current().openForReading(place);
    if (file == nullptr) return nullptr;
    return std::unique_ptr<MboxReader>(
        new MboxReader(std::make_unique<Pass>(std::move(place), std::move(file))));
}

MboxReader::MboxReader(std::unique_ptr<Pass> pass) : _pass(std::move(pass)) {}
MboxReader::~MboxReader() = default;

std::shared_ptr<Message> MboxReader::nextMessage() {
    return _pass->next();
}

bool MboxReader::hasReadAll() const {
    return _pass->hasReadAll();
}

}  // namespace lorvale
