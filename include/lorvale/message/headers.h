#pragma once
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/data.h"
#include "lorvale/values/date.h"

namespace lorvale {

class Message;

/// The value of a cached header: text, or for "date" also a moment.
using HeaderValue = std::variant<std::string, Date>;

/// All values of each header under its lower-case name, RFC 2047 words undone.
using HeaderDictionary = std::map<std::string, std::vector<std::string>, std::less<>>;
/// The lower-case names in the order in which they stand in the message, one entry an occurrence.
using HeaderOrder = std::vector<std::string>;
/// From the lower-case name to the name as the message spelled it.
using OriginalKeys = std::map<std::string, std::string, std::less<>>;

/// The pseudo-header that holds the text behind the envelope line "From " of an mbox.  Its trailing blank
/// keeps it apart from "from".
inline constexpr std::string_view kFromSpaceKey = "from ";

/// The one shared instance of a header name, which lives as long as the process, so that the headers of
/// thousands of messages hold no names of their own.  The list only grows: it is meant for the few names that
/// are cached, in the spellings that stores use.  Any thread.
LORVALE_EXPORT std::string_view sharedHeaderKey(std::string_view name);

/// The few headers that a store can give without reading the message.  A small list, looked through in order.
class LORVALE_EXPORT CachedHeaders {
public:
    struct Entry {
        std::string_view key;  ///< a shared instance
        HeaderValue value;
        friend bool operator==(const Entry&, const Entry&) = default;
    };

    /// Adds or replaces.  The key is kept as spelled.
    void set(std::string_view key, HeaderValue value);
    /// By the exact spelling; null without one.  Good until the next change.
    const HeaderValue* find(std::string_view key) const;
    /// The value if it is text, an empty text otherwise.
    std::string textForKey(std::string_view key) const;

    std::size_t size() const { return _entries.size(); }
    bool empty() const { return _entries.empty(); }
    auto begin() const { return _entries.begin(); }
    auto end() const { return _entries.end(); }
    friend bool operator==(const CachedHeaders&, const CachedHeaders&) = default;

private:
    std::vector<Entry> _entries;
};

/// The headers of one message, in two levels: the cached ones, which a listing needs and a store has at hand,
/// and all of them, read from the store on demand.  Keys are given in lower case unless an operation says
/// otherwise.  A copy is independent of its original.  Not locked; belongs to its message, which it does not
/// keep alive: without the message there is nothing more to load.
class LORVALE_EXPORT MessageHeaders {
public:
    /// "from", "subject", "date".
    static std::span<const std::string_view> cachedKeys();
    static std::shared_ptr<MessageHeaders> headersForMessage(const std::shared_ptr<Message>& message);

    explicit MessageHeaders(std::weak_ptr<Message> message = {});
    void setMessage(std::weak_ptr<Message> message);

    /// What the store has at hand, read once; keys in lower case.  Good until the next change.
    const CachedHeaders& cachedHeaders();
    /// Keys in any spelling, which originalKeyForKey() then gives; nullopt: to be read again.
    void setCachedHeaders(const std::optional<CachedHeaders>& headers);

    /// All headers, read from the store and decoded if need be; empty when there is nothing to read.  Good
    /// until the next change or flush, as is the order.
    const HeaderDictionary& allHeaders();
    const HeaderOrder& allHeadersOrder();
    /// The headers count as unchanged afterwards; nullopt: to be read again.
    void setAllHeaders(std::optional<HeaderDictionary> headers, std::optional<HeaderOrder> withOrder);

    /// Parses a header block (mail/model/HeaderDecoding.h tells its rules).  The names as spelled are added to
    /// this object's; nothing else of it changes.
    HeaderDictionary decodeHeadersFromData(const Data& data, HeaderOrder& order);

    /// For a cached key none or one value.  For others all values, or nullopt when there is no such header; a
    /// header can be there without a value.  A date among the cached values is given as in `Date:` lines.
    std::optional<std::vector<std::string>> objectsForKey(std::string_view key);
    /// The first value; nullopt when there is none.
    std::optional<HeaderValue> firstObjectForKey(std::string_view key);
    /// The first value as text; an empty text when there is none or it is a date.
    std::string firstTextForKey(std::string_view key);
    /// The name as the message spelled it; nullopt for an unknown one.
    std::optional<std::string_view> originalKeyForKey(std::string_view key) const;

    /// Replaces all values under a key, in any case of letters; it is the spelling that encodedHeaders()
    /// writes. Nullopt removes the header.  The cached headers stay as they are.
    void setObject(std::optional<std::vector<std::string>> values, std::string_view forKey);
    void setObject(std::string_view value, std::string_view forKey);
    /// Throws GenericException ("unsupported feature") for a header with several values.
    void removeObjectForKey(std::string_view key);
    bool headersChanged() const { return _headersChanged; }
    /// Whether all headers are in memory now, so that asking for them reads nothing.
    bool hasAllHeaders() const { return _allHeaders.has_value(); }

    /// "Message-ID:", or for a message without one a text made of its subject, date and recipient.  Nothing
    /// makes sure that it is unique.
    std::string messageID();
    /// When the message was delivered: by its envelope line, else by "Date:", else now.
    Date dateReceived();
    /// The same, but nullopt where neither line has a date that can be read.
    std::optional<Date> knownDateReceived();
    std::string sender();
    std::string subject();
    /// The addresses of the first "To:" and the first "Cc:".
    std::vector<std::string> recipients();
    /// Gives a message that has no envelope line one, made of its sender and date, as an mbox needs it.
    void appendFromSpaceIfMissing();

    /// The header block with its final empty line.  For unchanged headers the very bytes of the store, also
    /// from encodedHeadersForDelivery(); nullopt when the store has none.
    std::optional<Data> encodedHeaders();             ///< with the envelope line
    std::optional<Data> encodedHeadersForDelivery();  ///< without it

    /// Drops what the store can give again: all headers, with any change made to them.
    void flushCachedData();
    /// A rough weight for the message cache.
    std::size_t cachedDataSize() const;
    std::string description() const;

private:
    std::optional<Data> _encodedHeadersIncludingFromSpace(bool fromSpace);
    std::optional<Data> headerDataOfSource() const;
    void loadAllHeaders();
    void loadAllHeaders(const Data& block);
    std::string envelopeText();

    bool _headersChanged = false;
    std::weak_ptr<Message> _message;
    std::optional<CachedHeaders> _cachedHeaders;
    std::optional<HeaderDictionary> _allHeaders;
    std::optional<HeaderOrder> _allHeadersOrder;
    OriginalKeys _originalKeys;
};

}  // namespace lorvale
