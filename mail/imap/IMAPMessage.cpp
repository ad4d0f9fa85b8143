#include "lorvale/imap/message.h"

#include <algorithm>

#include "lorvale/imap/words.h"
#include "lorvale/values/text.h"

namespace lorvale {

std::shared_ptr<IMAPMessage> IMAPMessage::messageWithCachedHeaders(const CachedHeaders& headers,
                                                                   const std::optional<IMAPValue>& flags,
                                                                   std::uint32_t size) {
    auto message = std::make_shared<IMAPMessage>(headers, size);
    message->headers()->setCachedHeaders(headers);
    message->setMessageFlags(std::make_shared<MessageFlags>());
    if (flags) message->setIMAPFlags(*flags);
    return message;
}

void IMAPMessage::setIMAPFlags(const IMAPValue& flags) {
    const auto words = flags.texts();
    const auto has = [&](std::string_view flag) {
        return std::ranges::any_of(words, [&](auto word) { return equalIgnoringAsciiCase(word, flag); });
    };
    const auto own = messageFlags();
    if (!own) return;
    own->setRead(has(IMAPFlagSeen));
    own->setDeleted(has(IMAPFlagDeleted));
    own->setRepliedTo(has(IMAPFlagAnswered));
}

}  // namespace lorvale
