#pragma once
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/imap/connection.h"
#include "lorvale/imap/value.h"
#include "lorvale/message/headers.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/values/data.h"

/// What a server tells of a message.  Each reader gets the texts that came under one number, such as
/// "FETCH (FLAGS (\Seen))".
///
/// The classic dialect looks at the last text alone, and in it at the first item.  The standard one looks
/// through all texts for the item, since a server may send items in any order, and more than it was asked for.
/// Nothing here fails: what is not there is nullopt.

namespace lorvale {

using ResponseTexts = std::span<const Data>;

/// Item names and values in turn.
std::optional<IMAPValue> parseRawFetchResponse(const Data& text, MailDialect dialect);

std::optional<IMAPValue> parseFlagsResponse(ResponseTexts texts, MailDialect dialect);
std::optional<std::string> parseUIDsResponse(ResponseTexts texts, MailDialect dialect);
std::optional<std::string> parseRFC822SizeResponse(ResponseTexts texts, MailDialect dialect);
std::optional<IMAPValue> parseBodyResponse(ResponseTexts texts, MailDialect dialect);
std::optional<Data> parseHeaderSectionResponse(ResponseTexts texts, MailDialect dialect);
/// In the classic dialect whatever stands behind an item that begins with "BODY".
std::optional<Data> parseTextSectionResponse(ResponseTexts texts, MailDialect dialect);
/// A whole message with newlines at its line ends; from the first text.
std::optional<std::string> parseRFC822Response(ResponseTexts texts);
/// Empty where no envelope is.
CachedHeaders parseEnvelopeResponse(ResponseTexts texts, MailDialect dialect);
std::optional<IMAPConnection::CacheInfo> parseMessageCacheInfoResponse(ResponseTexts texts,
                                                                       MailDialect dialect);

/// The same from the items of one answer, in the standard dialect.
std::optional<IMAPConnection::CacheInfo> cacheInfoOfItems(const IMAPValue& items);

/// The headers of a list that is an envelope (RFC 3501, section 7.4.2).
CachedHeaders headersOfEnvelope(const IMAPValue& envelope, MailDialect dialect);
/// The value of an item in a list of names and values, by its name in any case of letters.
const IMAPValue* findItem(std::span<const IMAPValue> items, std::string_view name);
/// The same for a section, "BODY[HEADER]<0>" included.
const IMAPValue* findItemBeginningWith(std::span<const IMAPValue> items, std::string_view beginning);

/// A copy with each CRLF a newline.
std::string withNewlines(std::string_view text);

/// The bytes of a text that a server sent.  The classic dialect reads them in the default C string encoding and
/// writes them in the simplest one for mail that holds them, so that what comes out can be other bytes; the
/// standard dialect leaves them alone.
Data bytesOfServerText(std::string text, MailDialect dialect);

}  // namespace lorvale
