#include "mail/search/TextsAhead.h"

#include <mutex>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "mail/search/IndexedText.h"

namespace lorvale {

TextsAhead::TextsAhead(std::vector<std::shared_ptr<Message>> messages, IndexedForm form)
    : _messages(std::move(messages)), _form(form) {
    if (_messages.size() <= kShortRun) return;
    try {
        _thread = Thread("Index texts", Thread::kBackgroundPriority, [this](const std::stop_token&) {
            runLoggingExceptions("Reading messages ahead", [this] { readAll(); });
            const MutexLock lock(_mutex);
            _hasEnded = true;
            _changed.notify_all();
        });
    } catch (const NamedException& exception) {
        log("Indexing goes on with one thread: %@", exception.reason());
    }
}

TextsAhead::~TextsAhead() {
    {
        const MutexLock lock(_mutex);
        _ends = true;
    }
    _changed.notify_all();
}

std::optional<std::string> TextsAhead::read(std::size_t place) const {
    std::optional<std::string> text;
    runLoggingExceptions("Reading a message", [&] { text = indexedText(*_messages[place], _form); });
    return text;
}

void TextsAhead::readAll() {
    for (std::size_t place = 0; place < _messages.size() && waitForRoom(); ++place) enter({place, read(place)});
}

bool TextsAhead::waitForRoom() {
    const MutexLock lock(_mutex);
    std::unique_lock held(_mutex.native(), std::adopt_lock);
    while (!_ends && (_ready.size() >= kMostTexts || _bytes >= kMostBytes)) _changed.wait(held);
    held.release();  // the lock above gives it back
    return !_ends;
}

void TextsAhead::enter(Ready ready) {
    {
        const MutexLock lock(_mutex);
        _bytes += ready.size();
        _ready.push_back(std::move(ready));
    }
    _changed.notify_all();
}

std::optional<TextsAhead::Ready> TextsAhead::takeFirst() {
    if (_ready.empty()) return std::nullopt;
    auto first = std::move(_ready.front());
    _ready.pop_front();
    _bytes -= first.size();
    _changed.notify_all();
    return first;
}

std::optional<std::string> TextsAhead::textAt(std::size_t place) {
    if (!_thread.joinable()) return read(place);
    const MutexLock lock(_mutex);
    std::unique_lock held(_mutex.native(), std::adopt_lock);
    std::optional<Ready> first;
    while (!(first = takeFirst()) || first->place < place) {
        if (first) continue;
        if (_hasEnded) break;
        _changed.wait(held);
    }
    held.release();  // the lock above gives it back
    return first ? std::move(first->text) : read(place);
}

}  // namespace lorvale
