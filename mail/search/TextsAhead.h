#pragma once
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "lorvale/platform/mutex.h"
#include "lorvale/platform/thread.h"
#include "mail/search/IndexAnalysis.h"

namespace lorvale {

class Message;

/// Has the texts of a run of messages ready when the index asks for them.  They are taken out of the mail on a
/// thread of their own, some way ahead, so that two processors share the work; those of a short run are taken
/// when they are asked for.  Belongs to one thread.  The end waits for the message that is being read.
class TextsAhead {
public:
    TextsAhead(std::vector<std::shared_ptr<Message>> messages, IndexedForm form);
    ~TextsAhead();
    TextsAhead(const TextsAhead&) = delete;
    TextsAhead& operator=(const TextsAhead&) = delete;

    /// indexedText() of the message at that place of the run; nullopt also after an exception, which is logged.
    /// Each place once at most, and in rising order; those that are left out are thrown away.
    std::optional<std::string> textAt(std::size_t place);

private:
    static constexpr std::size_t kShortRun = 16;
    // How far ahead: enough that neither thread waits long for the other, and little beside the index's memory.
    static constexpr std::size_t kMostTexts = 64, kMostBytes = 2'000'000;

    struct Ready {
        std::size_t place = 0;
        std::optional<std::string> text;

        std::size_t size() const { return text ? text->size() : 0; }
    };

    std::optional<std::string> read(std::size_t place) const;
    void readAll();
    /// False when nobody wants more.
    bool waitForRoom();
    void enter(Ready ready);
    std::optional<Ready> takeFirst() LORVALE_REQUIRES(_mutex);

    const std::vector<std::shared_ptr<Message>> _messages;
    const IndexedForm _form;

    Mutex _mutex;
    std::condition_variable _changed;
    std::deque<Ready> _ready LORVALE_GUARDED_BY(_mutex);
    std::size_t _bytes LORVALE_GUARDED_BY(_mutex) = 0;  // of those
    bool _ends LORVALE_GUARDED_BY(_mutex) = false;      // nobody asks any more
    bool _hasEnded LORVALE_GUARDED_BY(_mutex) = false;  // the thread, be it for want of memory
    Thread _thread;                                     // last: joined before the rest goes
};

}  // namespace lorvale
