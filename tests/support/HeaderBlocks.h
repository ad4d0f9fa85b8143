#pragma once
#include <string_view>

#include "mail/model/HeaderDecoding.h"

namespace lorvale::testing {

/// A header block taken apart.
struct HeaderBlock {
    HeaderDictionary headers;
    HeaderOrder order;
    OriginalKeys originalKeys;
    friend bool operator==(const HeaderBlock&, const HeaderBlock&) = default;
};

inline HeaderBlock decodeBlock(std::string_view bytes, MailDialect dialect = MailDialect::classic) {
    HeaderBlock block;
    decodeHeaderBlock(bytes, block.headers, block.order, block.originalKeys, dialect);
    return block;
}

/// Whether the cached headers, read alone, are those that decoding the whole block gave.
inline bool cachedHeadersAgree(std::string_view bytes, const HeaderBlock& whole,
                               MailDialect dialect = MailDialect::classic) {
    const auto cached = cachedHeadersInBlock(bytes, dialect);
    std::size_t expected = 0;
    for (const auto key : MessageHeaders::cachedKeys()) {
        const auto found = whole.headers.find(key);
        if (found == whole.headers.end() || found->second.empty()) continue;
        ++expected;
        if (cached.textForKey(whole.originalKeys.find(key)->second) != found->second.front()) return false;
    }
    return cached.size() == expected;
}

}  // namespace lorvale::testing
