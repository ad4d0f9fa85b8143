#pragma once
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/message.h"
#include "lorvale/search.h"
#include "lorvale/store.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {

inline constexpr std::chrono::seconds kPatience{60};

/// "about NUMBER" with a rare word of its own in the body: "rareNUMBER".  Letters differ in length, by which a
/// mailbox knows that a table which a kill has left tells of another state.
inline std::shared_ptr<Message> numberedLetter(int number, std::string_view body = "") {
    const auto digits = std::to_string(number);
    return Message::messageWithData(
        Data::copyOf("From a@x.example Thu Aug 22 12:46:23 2002\nFrom: a@x.example\nSubject: about " + digits +
                     "\nDate: Thu, 22 Aug 2002 12:46:23 +0000\n\nA letter with rare" + digits + " in it.\n" +
                     std::string(body) + std::string(static_cast<std::size_t>(number % 29), '.') + "\n"));
}

inline MessageList numberedLetters(int first, int count) {
    std::vector<std::shared_ptr<Message>> letters;
    letters.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) letters.push_back(numberedLetter(first + i));
    return letters;
}

/// A directory mailbox with an index, in a folder of its own.
class IndexedMailbox {
public:
    explicit IndexedMailbox(bool indexed = true) {
        open(true);
        if (indexed) turnOn();
    }
    ~IndexedMailbox() { close(); }
    IndexedMailbox(const IndexedMailbox&) = delete;
    IndexedMailbox& operator=(const IndexedMailbox&) = delete;

    std::string path() const { return (_folder / "box.mbox").string(); }
    std::string indexPath() const { return path() + "/mbox.index"; }
    void open(bool create = false) { store = TarnMbox::initWithPath(path(), create, /*readOnly=*/false); }
    void close() {
        if (store != nullptr) store->close();
        store = nullptr;
    }
    void reopen() {
        close();
        open();
    }
    void turnOn() {
        store->setIsIndexed(true);
        store->updateIndex();
        wait();
    }
    bool wait() const {
        return IndexManager::waitUntilIdle(*store, std::chrono::steady_clock::now() + kPatience);
    }
    bool append(const MessageList& messages) const { return store->syncAppendMessages(messages, true); }
    /// The subjects of what is found, best first; "(gone)" for a message that has left, "(no index)".
    std::vector<std::string> find(const std::string& text, bool isBoolean = false) const {
        const std::shared_ptr<MessageStore> stores[] = {store};
        const auto found = IndexManager::indexManager().search(stores, {text, isBoolean, 0});
        if (!found.error.empty()) return {found.error};
        if (!found.hits) return {"(no index)"};
        std::vector<std::string> subjects;
        for (const auto& hit : *found.hits)
            subjects.push_back(hit.message != nullptr ? hit.message->headers()->subject() : "(gone)");
        return subjects;
    }

    std::shared_ptr<TarnMbox> store;

private:
    const TemporaryFolder _folder;
};

}  // namespace lorvale::testing
