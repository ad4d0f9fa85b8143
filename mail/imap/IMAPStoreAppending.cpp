/// Messages on their way to the server, and the queue of those that cannot go there now.
#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "base/files/FileLock.h"
#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "base/files/PropertyListFile.h"
#include "lorvale/body.h"
#include "lorvale/imap/store.h"
#include "lorvale/imap/words.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/user_defaults.h"
#include "mail/imap/SentNotes.h"
#include "mail/imap/ServerLock.h"
#include "mail/imap/StoreNames.h"

namespace lorvale {

namespace {

std::string withCRLF(std::string_view text) {
    std::string lines;
    lines.reserve(text.size() + text.size() / 32);
    char before = '\0';
    for (const char c : text) {
        // The standard dialect keeps bytes as they came, with line ends that are the network's already.
        if (c == '\n' && before != '\r') lines += '\r';
        lines += before = c;
    }
    return lines;
}

constexpr std::string_view kConvertTarnMail = "ConvertTarnMailToMIME";
constexpr std::string_view kTarnReference = "tarn-reference";

/// What a message in the older rich format is on another machine, where no directory of this one can be
/// referred to: one of MIME, where the user wants that, else its document packed.
std::shared_ptr<Message> withoutTarnReference(Message& message, MessageBody& body) {
    const bool converts = UserDefaults::standard().boolForKey(kConvertTarnMail);
    const auto name = converts ? "MimeBody" : "TarnMailBody";
    auto other = Message::emptyMessageWithBodyClass(*MessageBody::bodyClasses().classNamed(name));
    auto headers = std::make_shared<MessageHeaders>(*message.headers());
    const auto text = body.decodedBody();
    if (!text) return nullptr;
    if (headers->objectsForKey(kTarnReference)) headers->removeObjectForKey(kTarnReference);
    headers->setMessage(other);
    other->setHeaders(std::move(headers));
    other->messageBody()->setDecodedBody(*text);
    return other;
}

/// The bytes that go up; nullopt when they cannot be had.
std::optional<Data> bytesToAppend(Message& given) {
    std::shared_ptr<Message> message = given.shared_from_this();
    const auto rich = std::dynamic_pointer_cast<TarnMailBody>(message->messageBody());
    if (rich) message = withoutTarnReference(given, *rich);
    if (!message) return std::nullopt;
    // The headers of a letter that is just being composed are completed with its body.
    if (rich || !message->messageStore()) (void)message->encodedBody();
    const auto block = message->headers()->encodedHeadersForDelivery();
    if (!rich) message->flushCachedData();  // which takes changes of the headers along
    const auto body = message->encodedBody();
    if (!block || !body) return std::nullopt;
    auto head = block->view();
    if (head.starts_with("From ")) head.remove_prefix(std::min(head.find('\n'), head.size() - 1) + 1);
    return Data(withCRLF(std::string(head) + body->toString()));
}

}  // namespace

// Others have the mailbox open, too: the queue is read and changed under a lock of its folder, which is kept
// for no longer than that takes.

std::vector<Data> IMAPStore::readQueue() {
    std::vector<Data> queue;
    const auto file = pathOf(kQueueName);
    FileStatus status;
    const auto list = readPropertyListFile(file, &status);
    if (status.code() == ENOENT) return queue;
    if (!list || !list->get<PropertyList::Array>()) {
        const auto aside = uniquePath(file + ".damaged");
        log("The queue %@ cannot be read; it is kept as %@: %@", file, aside, status.text());
        if (const auto moved = FileSystem::current().rename(file, aside); !moved) log("%@", moved.text());
        return queue;
    }
    for (const auto& entry : list->array())
        if (const auto bytes = entry.data()) queue.push_back(*bytes);
    return queue;
}

bool IMAPStore::writeQueue(const std::vector<Data>& queue) {
    PropertyList list = PropertyList::Array();
    for (const auto& bytes : queue) list.append(bytes);
    const auto saved = writePropertyListFile(pathOf(kQueueName), list, kMirrorFileMode);
    if (!saved) log("%@", saved.text());
    return static_cast<bool>(saved);
}

bool IMAPStore::addToQueue(std::vector<Data> messages) {
    if (messages.empty()) return true;
    const ServerTurn turn(*_lock);
    const auto lock = FileLock::ofFolder(path(), kPatienceForQueue);
    if (lock.isTaken()) {
        log("The queue of %@ is in use, so that nothing could be added", path());
        return false;
    }
    auto queue = readQueue();
    std::ranges::move(messages, std::back_inserter(queue));
    return writeQueue(queue);
}

/// Each of them once; what others have added meanwhile stays.
bool IMAPStore::removeFromQueue(const std::vector<Data>& messages) {
    const auto lock = FileLock::ofFolder(path(), kPatienceForQueue);
    if (lock.isTaken()) {
        log("The queue of %@ is in use; what was sent leaves it later", path());
        return false;
    }
    std::vector<Data> left;
    auto next = messages.begin();
    for (auto& each : readQueue()) {
        if (next != messages.end() && each == *next)
            ++next;
        else
            left.push_back(std::move(each));
    }
    if (!left.empty()) return writeQueue(left);
    const auto removed = FileSystem::current().remove(pathOf(kQueueName));
    if (!removed && removed.code() != ENOENT) log("%@", removed.text());
    return removed || removed.code() == ENOENT;
}

std::size_t IMAPStore::pendingAppendCount() {
    return lockedQueue().size();
}

MessageList IMAPStore::pendingAppends() {
    std::vector<std::shared_ptr<Message>> messages;
    for (auto& text : lockedQueue()) messages.push_back(Message::messageWithData(std::move(text)));
    return messages;
}

/// Without what the server has taken already.
std::vector<Data> IMAPStore::lockedQueue() {
    const ServerTurn turn(*_lock);
    const auto lock = FileLock::ofFolder(path(), kPatienceForQueue);
    auto queue = readQueue();
    const SentNotes notes(pathOf(kSendingName), queue);
    std::size_t place = 0;
    std::erase_if(queue, [&](const Data&) { return notes.has(place++); });
    return queue;
}

bool IMAPStore::appendMessages(const MessageList& messages) {
    return appendWithFlags(messages, {std::string(IMAPFlagSeen)});
}

bool IMAPStore::appendWithFlags(const MessageList& messages, const std::vector<std::string>& flags) {
    bool isAllTaken = true, isLastTaken = true;
    std::vector<Data> queued;
    int count = 0;
    _refusal.clear();
    for (const auto& message : messages) {
        const auto status = [&, number = ++count](std::string_view format) {
            return formatText(format, number, messages.size());
        };
        isLastTaken = appendOrQueue(*message, flags, status, queued);
        isAllTaken = isAllTaken && isLastTaken;
    }
    if (!addToQueue(std::move(queued))) isAllTaken = isLastTaken = false;
    showStatus("");
    const ServerTurn turn(*_lock);
    if (_connection->connectionState() == IMAPConnection::State::mailboxSelected) _connection->noop();
    // The answer of the classic dialect is about the last message, whatever became of the others.
    return isStandard() ? isAllTaken : isLastTaken;
}

/// False when it can neither go up nor wait.
bool IMAPStore::appendOrQueue(Message& message, const std::vector<std::string>& flags, const StatusText& status,
                              std::vector<Data>& queued) {
    const auto source = message.messageStore();
    const auto show = [&](std::string_view text) {
        if (source) userAgentOrAbsent().displayStatus(text, source.get());
        showStatus(text);
    };
    const auto bytes = bytesToAppend(message);
    if (!bytes) {
        log("A message for %@ cannot be read", _mailboxName);
        return false;
    }
    bool isTaken = true;
    const ServerTurn turn(*_lock);
    if (_connection->connectionState() == IMAPConnection::State::mailboxSelected) {
        show(status("Transferring %d of %d messages..."));
        isTaken = _connection->appendData(bytes->view(), _mailboxName, flags);
        if (!isTaken) _refusal = _connection->refusal();
    } else {
        show(status("Queuing %d of %d to be transferred later..."));
        queued.push_back(*bytes);
    }
    if (source) userAgentOrAbsent().displayStatus("", source.get());
    return isTaken;
}

bool IMAPStore::syncAppendMessages(const MessageList& messages, bool setUnread) {
    // What the classic dialect appends counts as read.
    if (!setUnread || !isStandard()) return appendMessages(messages);
    return appendWithFlags(messages, {});
}

/// In the classic dialect a message that the server does not take is lost with the queue; in the standard one
/// it stays there.
void IMAPStore::_processPendedAppendData() {
    if (!goesOn() || _opensReadOnly || !FileSystem::current().exists(pathOf(kQueueName))) return;
    // Nobody else takes messages out as long as this one holds; two would send them twice.
    const FileLock sending(pathOf(kSendingName));
    if (sending.isTaken()) return;
    const ServerTurn turn(*_lock);
    if (_connection->connectionState() <= IMAPConnection::State::loggedIn) return;
    const auto queue = [this] {
        const auto lock = FileLock::ofFolder(path(), kPatienceForQueue);
        return readQueue();
    }();
    SentNotes notes(pathOf(kSendingName), queue);
    std::vector<Data> done;
    for (std::size_t i = 0; i < queue.size(); ++i) {
        showStatus(formatText(LVLocalizedString("Transferring %d of %d previously transfered messages..."),
                              i + 1, queue.size()));
        const bool isTaken = notes.has(i) || _connection->appendData(queue[i].view(), _mailboxName,
                                                                     {{std::string(IMAPFlagSeen)}});
        if (isStandard() && !isTaken) {
            if (_connection->connectionState() == IMAPConnection::State::notConnected) break;
            continue;
        }
        notes.add(i);
        done.push_back(queue[i]);
    }
    if (done.empty() || removeFromQueue(done)) notes.clear();
}

}  // namespace lorvale
