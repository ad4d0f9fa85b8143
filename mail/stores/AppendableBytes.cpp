#include "mail/stores/AppendableBytes.h"

#include <utility>

#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "mail/model/Envelope.h"

namespace lorvale {

namespace {

/// Nullopt when either part cannot be had.  An envelope line is made only for headers that are there, or it
/// would be taken for a message.
std::optional<AppendableBytes> bytesForMailbox(Message& message) {
    const auto headers = message.headers();
    auto body = message.encodedBody();  // first: encoding a text tells the headers what the bytes are
    if (!body) return std::nullopt;
    auto header = headers->encodedHeaders();
    if (!header) return std::nullopt;
    if (!header->view().starts_with(kEnvelopeMark)) {
        headers->appendFromSpaceIfMissing();
        header = headers->encodedHeaders();
        if (!header) return std::nullopt;
    }
    return AppendableBytes{std::move(*header), std::move(*body)};
}

}  // namespace

std::optional<AppendableBytes> AppendableBytes::ofMessage(Message& message) {
    const auto headers = message.headers();
    const bool wasLoaded = message.cachedDataSize() > headers->cachedDataSize() || headers->hasAllHeaders();
    std::optional<AppendableBytes> bytes;
    try {
        bytes = bytesForMailbox(message);
        if (!bytes) log("A message whose header or body cannot be had is not appended");
    } catch (const NamedException& exception) {
        log("A message cannot be appended: %@", exception.what());
    }
    // A whole mailbox may be on its way, so what only this has loaded goes again.
    if (!wasLoaded && !headers->headersChanged()) message.flushCachedData();
    return bytes;
}

}  // namespace lorvale
