#include "Copying.h"

#include "Mailbox.h"
#include "Terminal.h"
#include "Work.h"

namespace mailhost {

bool copyAll(const lorvale::MessageList& messages, lorvale::MessageStore& target, bool allUnread,
             const std::string& title) {
    constexpr std::size_t kRun = 256;
    ProgressBar progress(title, messages.size());
    const auto isUnread = [&](const auto& message) { return allUnread || !message->currentFlags()->isRead(); };
    bool copied = true;
    for (std::size_t first = 0; first < messages.size();) {
        std::vector<std::shared_ptr<lorvale::Message>> run;
        const bool unread = isUnread(messages[first]);
        for (auto i = first; i < messages.size() && run.size() < kRun && isUnread(messages[i]) == unread; ++i)
            run.push_back(messages[i]);
        workOn("messages from " + std::to_string(first + 1) + " on", 0,
               [&] { copied = target.syncAppendMessages(run, unread) && copied; });
        for (const auto& message : run) {
            forget(*message);
            progress.advance();
        }
        first += run.size();
    }
    return copied;
}

}  // namespace mailhost
