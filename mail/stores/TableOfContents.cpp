#include "mail/stores/TableOfContents.h"

#include <algorithm>
#include <functional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "base/files/PathUtils.h"
#include "lorvale/defaults.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/progressor.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/store/berkeley_mbox.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/stores/TarnNames.h"

namespace lorvale {

namespace {

TOCMessage& listed(const std::shared_ptr<Message>& message) {
    return static_cast<TOCMessage&>(*message);
}

/// Whether a file was changed after another one, and so soon that a stamp in seconds may not tell.  A longer
/// time between the two is none that has passed, but a clock that was set or a file that came from elsewhere.
bool wasChangedShortlyAfter(const FileAttributes& file, const FileAttributes& other) {
    const auto seconds = file.modified - other.modified;
    if (seconds < 0 || seconds > 1) return false;
    return seconds == 1 || file.modifiedNanoseconds > other.modifiedNanoseconds;
}

std::string mboxBeside(const std::string& table) {
    return stringByAppendingPathComponent(folderOf(table), kMboxName);
}

}  // namespace

std::unique_ptr<TableOfContents> TableOfContents::initWithPath(const std::string& path) {
    FileStatus status;
    auto bytes = FileSystem::current().readFile(path, &status);
    if (!bytes || bytes->empty()) {
        if (!status && status.code() != ENOENT) log("%@", status.text());
        return nullptr;
    }
    try {
        return ofBytes(path, *std::move(bytes));
    } catch (const NamedException& exception) {
        log("Error loading table of contents file:");
        log("    %@", exception.reason());
        return nullptr;
    }
}

std::unique_ptr<TableOfContents> TableOfContents::ofBytes(std::string path, Data bytes) {
    auto table = std::make_unique<TableOfContents>(std::move(path));
    table->loadCacheFromFile(std::move(bytes));
    return table;
}

void TableOfContents::loadCacheFromFile(Data bytes) {
    // The records stay as they stand, and the whole file as long as one of its messages.
    const auto file = std::make_shared<const Data>(std::move(bytes));
    std::vector<std::shared_ptr<Message>> messages;
    const auto behind = decodeTable(file->view(), _header, [&](const TOCRecord& record, std::string_view own) {
        messages.push_back(std::make_shared<TOCMessage>(
            record, KeptTOCRecord(std::shared_ptr<const char[]>(file, own.data()))));
    });
    // What stands behind the last record belongs to messages that nobody has counted.
    _isValid = behind == 0 && isOfFile();
    _messages = std::move(messages);
}

bool TableOfContents::isOfFile() const {
    if (lastPathComponent(_path) != kTableName) return true;
    auto& files = FileSystem::current();
    const auto mbox = files.attributes(mboxBeside(_path)), table = files.attributes(_path);
    if (!mbox || !table || stampOf(*mbox) != _header.timeStamp) return false;
    return !wasChangedShortlyAfter(*mbox, *table);
}

std::uint32_t TableOfContents::stampOf(const FileAttributes& mbox) {
    // The same rounding when a stamp is made and when it is compared.
    return static_cast<std::uint32_t>(mbox.modified + (mbox.modifiedNanoseconds >= 500'000'000 ? 1 : 0));
}

void TableOfContents::addMessages(const MessageList& messages) {
    _messages = _messages.appending(messages);
}

std::shared_ptr<TOCMessage> TableOfContents::addMessage(Message& message, MboxRange withRange) {
    auto added = TOCMessage::TOCMessageFromMessage(message);
    if (added == nullptr) return nullptr;
    added->setMboxRange(withRange);
    addMessage(added);
    return added;
}

void TableOfContents::removeMessages(const MessageList& messages) {
    std::unordered_set<const Message*> going;
    for (const auto& message : messages) going.insert(message.get());
    std::uint32_t gone = 0;  // bytes in front of the message at hand
    for (const auto& message : _messages) {
        const auto range = listed(message).mboxRange();
        if (going.contains(message.get())) {
            gone += range.length;
        } else if (gone > 0) {
            listed(message).setMboxRange({range.location - gone, range.length});
        }
    }
    setMessages(_messages.removing(messages));
}

void TableOfContents::setMessages(MessageList messages) {
    _messages = std::move(messages);
}

std::shared_ptr<TOCMessage> TableOfContents::messageForMessageID(std::string_view messageID) {
    return std::static_pointer_cast<TOCMessage>(_messagesByID.find(_messages, messageID));
}

/// The records of a table that is being made anew, each to be taken once.
class TableOfContents::OldRecords {
public:
    explicit OldRecords(const MessageList& messages) {
        bool told = false;
        for (const auto& message : messages) {
            auto record = std::static_pointer_cast<TOCMessage>(message);
            const bool isNew = _byID.insert_or_assign(record->messageID(), record).second;
            if (!isNew && !std::exchange(told, true))
                log("Warning: two messages in one mailbox have the same ID!");
            _byPlace[record->mboxRange().location] = std::move(record);
        }
    }

    /// The record of a message that was found in the file and would be listed like this; null when there is
    /// none.  A message that has not moved has its own record, whatever others have its identity; so has one
    /// whose date nobody knows.
    std::shared_ptr<TOCMessage> take(Message& message, const TOCMessage& fresh, const std::string& identity,
                                     bool hasDate) {
        const auto place = _byPlace.find(fresh.mboxRange().location);
        if (place != _byPlace.end() && place->second != nullptr) {
            const auto& record = place->second;
            if (record->mboxRange() == fresh.mboxRange() && record->sender() == fresh.sender() &&
                record->subject() == fresh.subject() && (!hasDate || record->messageID() == identity))
                return taken(record);
        }
        // Tables of old listed some messages under the identifier in their headers.
        for (const auto& name : {message.headers()->messageID(), identity}) {
            const auto found = _byID.find(name);
            if (found != _byID.end() && !_taken.contains(found->second.get())) return taken(found->second);
        }
        return nullptr;
    }

private:
    std::shared_ptr<TOCMessage> taken(const std::shared_ptr<TOCMessage>& record) {
        return _taken.insert(record.get()).second ? record : nullptr;
    }

    std::unordered_map<std::string, std::shared_ptr<TOCMessage>> _byID;  // of several the last
    std::unordered_map<std::uint32_t, std::shared_ptr<TOCMessage>> _byPlace;
    std::unordered_set<const TOCMessage*> _taken;
};

namespace {

/// A panel on the rebuilding of a table, where there is somebody to look at it.
class RebuildingPanel {
public:
    RebuildingPanel(const std::string& table, std::size_t count) {
        constexpr std::size_t kSoonDone = 10;
        if (count <= kSoonDone || !RunLoop::isMainThread() || !Defaults::sharedInstance().canUseWindowKit())
            return;
        const auto folder = folderOf(table);
        const auto mailbox = stringByDeletingPathExtension(lastPathComponent(folder));
        _progress = Progressor::newWithTitle(
            "Open Mailbox", formatText("Upgrading table of contents for %@.  Please wait...", mailbox));
        _progress->setMaxValue(static_cast<double>(count));
        _progress->setButtonEnabled(false);
        _progress->beginModalSession();
    }
    ~RebuildingPanel() {
        if (_progress) _progress->endModalSession();
    }
    RebuildingPanel(const RebuildingPanel&) = delete;
    RebuildingPanel& operator=(const RebuildingPanel&) = delete;

    void step() {
        if (_progress) _progress->setDoubleValue(++_done);
    }

private:
    std::shared_ptr<Progressor> _progress;  // null: nobody looks
    double _done = 0;
};

}  // namespace

std::optional<TableOfContents::Rebuilt> TableOfContents::rebuiltFromStore(BerkeleyMbox& store) const {
    OldRecords old(_messages);
    std::vector<std::shared_ptr<Message>> messages;
    const auto found = store.allMessages();
    std::vector<MboxRange> places;
    messages.reserve(found.size());
    RebuildingPanel panel(_path, found.size());
    for (const auto& message : found) {
        panel.step();
        auto fresh = TOCMessage::TOCMessageFromMessage(*message);
        if (fresh == nullptr) return std::nullopt;
        const bool hasDate = message->headers()->knownDateReceived().has_value();
        auto record = old.take(*message, *fresh, fresh->messageID(), hasDate);
        places.push_back(fresh->mboxRange());
        messages.push_back(record != nullptr ? std::move(record) : std::move(fresh));
        message->setHeaders(nullptr);
    }
    return Rebuilt{std::move(messages), std::move(places)};
}

void TableOfContents::adopt(Rebuilt rebuilt) {
    for (std::size_t i = 0; i < rebuilt.places.size(); ++i)
        listed(rebuilt.messages[i]).setMboxRange(rebuilt.places[i]);
    setMessages(std::move(rebuilt.messages));
}

Data TableOfContents::cachedData(std::uint32_t stamp) const {
    auto header = _header;
    header.count = static_cast<std::uint32_t>(count());
    header.timeStamp = stamp;
    ByteBuffer bytes(TOCHeader::kSize + count() * 128);
    append(bytes, header);
    for (const auto& message : _messages) append(bytes, listed(message).record());
    return bytes.data();
}

bool TableOfContents::flushToFile(const FileAttributes& mbox) {
    const auto now = FileSystem::current().attributes(mboxBeside(_path));
    const bool isKnown = now && now->isSameFileAs(mbox) && now->size == mbox.size &&
                         now->modified == mbox.modified && now->modifiedNanoseconds == mbox.modifiedNanoseconds;
    return isKnown ? write(stampOf(mbox)) : flushAsStale(now.value_or(mbox));
}

bool TableOfContents::flushAsStale(const FileAttributes& mbox) {
    // 68 years off: a second more would be the time of a change to come.
    constexpr std::uint32_t kFarAway = 0x8000'0000;
    return write(stampOf(mbox) ^ kFarAway);
}

bool TableOfContents::flushToFile() {
    return write(0);
}

bool TableOfContents::write(std::uint32_t stamp) {
    const auto written = writeFileAtomically(_path, cachedData(stamp).view(), kMailboxPermissions);
    if (!written) log("%@", written.text());
    return static_cast<bool>(written);
}

std::string TableOfContents::description() const {
    return formatText("%@: version %d, %d messages%@", _path, _header.version, count(),
                      _isValid ? "" : ", stale");
}

}  // namespace lorvale
