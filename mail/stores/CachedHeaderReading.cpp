#include "mail/stores/CachedHeaderReading.h"

#include <cstddef>

#include "lorvale/values/text.h"
#include "mail/model/HeaderDecoding.h"

namespace lorvale {

namespace {

std::string capitalised(std::string_view key) {
    std::string word = asciiLowered(key);
    if (!word.empty() && word.front() >= 'a' && word.front() <= 'z') {
        word.front() = static_cast<char>(word.front() - 'a' + 'A');
    }
    return word;
}

/// The first values among all the headers that the message holds.
CachedHeaders ofChangedHeaders(MessageHeaders& headers) {
    CachedHeaders cached;
    const auto all = headers.allHeaders();
    for (const auto key : MessageHeaders::cachedKeys()) {
        const auto found = all->find(key);
        if (found == all->end() || found->second.empty()) continue;
        cached.set(headers.originalKeyForKey(key).value_or(std::string(key)), found->second.front());
    }
    return cached;
}

}  // namespace

CachedHeaders readCachedHeaders(Message& message, const std::optional<Data>& headerBlock,
                                HeaderSpelling spelling) {
    const auto headers = message.headers();
    message.noteMissing(MessagePart::headers, !headerBlock && !headers->headersChanged());
    auto cached = headers->headersChanged() ? ofChangedHeaders(*headers)
                                            : cachedHeadersInBlock(headerBlock ? headerBlock->view() : "");
    if (spelling == HeaderSpelling::ofMessage) return cached;
    CachedHeaders respelled;
    for (const auto& [key, value] : cached) respelled.set(capitalised(key), value);
    return respelled;
}

}  // namespace lorvale
