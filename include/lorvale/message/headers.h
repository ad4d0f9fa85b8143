#pragma once
#include <cstddef>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/message/share.h"
#include "lorvale/platform/small_mutex.h"
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

/// The few headers that a store can give without reading the message.  A value that copies share; the entries
/// lie in one small block, since a mailbox holds one of these for each listed message.
class LORVALE_EXPORT CachedHeaders {
public:
    struct Entry {
        std::string_view key;  ///< a shared instance
        HeaderValue value;
        friend bool operator==(const Entry&, const Entry&) = default;
    };
    class const_iterator;

    /// "subject", "from" and "date", in this order.
    static CachedHeaders ofListing(std::string_view subject, std::string_view from, const Date& date);

    /// Adds or replaces.  The key is kept as spelled.
    void set(std::string_view key, const HeaderValue& value);
    /// By the exact spelling; nullopt without one.
    std::optional<HeaderValue> find(std::string_view key) const;
    /// The value if it is text, an empty text otherwise.
    std::string textForKey(std::string_view key) const;
    /// The same under keys in lower case; of two that become alike the last one counts.
    CachedHeaders withLowerCaseKeys() const;
    /// How withLowerCaseKeys() found the key, a shared instance; nullopt for an unknown one.
    std::optional<std::string_view> spellingOfKey(std::string_view key) const;

    std::size_t size() const;
    bool empty() const { return size() == 0; }
    /// Give entries by value, in the order in which they were set.  Good until the next change.
    const_iterator begin() const;
    const_iterator end() const;
    friend LORVALE_EXPORT bool operator==(const CachedHeaders& a, const CachedHeaders& b);

private:
    struct Record;
    void set(std::string_view key, std::string_view spelling, const HeaderValue& value);
    void keep(std::string_view records);

    std::shared_ptr<const char[]> _records;  // see CachedHeaders.cpp; null: empty
};

class CachedHeaders::const_iterator {
public:
    Entry operator*() const;
    const_iterator& operator++();
    friend bool operator==(const_iterator a, const_iterator b) = default;

private:
    friend class CachedHeaders;
    explicit const_iterator(const char* record) : _record(record) {}
    const char* _record;
};

/// What a listing tells about one message.
struct HeaderSummary {
    std::string from, subject, to, cc;  ///< the first value of each; empty where there is none
    std::string messageID;              ///< as MessageHeaders::messageID()
    std::optional<Date> dateReceived;   ///< as MessageHeaders::knownDateReceived()
};

/// The headers of one message, in two levels: the cached ones, which a listing needs and a store has at hand,
/// and all of them, read from the store on demand.  Keys are given in lower case unless an operation says
/// otherwise.  It does not keep its message alive: without that there is nothing more to load.
///
/// Any thread may ask and flush; what is handed out is a value or a share that no flush elsewhere pulls away.
/// Loading happens without a lock held, and the first thread that has loaded wins.  Changes of headers belong
/// to one thread at a time.
class LORVALE_EXPORT MessageHeaders {
public:
    /// "from", "subject", "date".
    static std::span<const std::string_view> cachedKeys();
    static std::shared_ptr<MessageHeaders> headersForMessage(const std::shared_ptr<Message>& message);

    explicit MessageHeaders(std::weak_ptr<Message> message = {});
    /// Independent of its original.
    MessageHeaders(const MessageHeaders& other);
    MessageHeaders& operator=(const MessageHeaders&) = delete;
    void setMessage(std::weak_ptr<Message> message);

    /// What the source has at hand, asked for once; keys in lower case.  What cannot be read now is asked for
    /// again the next time.
    CachedHeaders cachedHeaders();
    /// Keys in any spelling, which originalKeyForKey() then gives; nullopt: to be read again.
    void setCachedHeaders(const std::optional<CachedHeaders>& headers);

    /// All headers as they are now, read and decoded if need be; empty when there is nothing to read.
    Share<HeaderDictionary> allHeaders();
    Share<HeaderOrder> allHeadersOrder();
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
    /// The first value as text, also a date; an empty text when there is none.
    std::string firstTextForKey(std::string_view key);
    /// The name as the message spelled it; nullopt for an unknown one.
    std::optional<std::string> originalKeyForKey(std::string_view key) const;

    /// Replaces all values under a key, in any case of letters; it is the spelling that encodedHeaders()
    /// writes. Nullopt removes the header.  The cached headers stay as they are.
    void setObject(std::optional<std::vector<std::string>> values, std::string_view forKey);
    void setObject(std::initializer_list<std::string_view> values, std::string_view forKey);
    void setObject(std::string_view value, std::string_view forKey);
    /// Throws GenericException ("unsupported feature") for a header with several values.
    void removeObjectForKey(std::string_view key);
    bool headersChanged() const;
    /// Whether all headers are in memory now, so that asking for them reads nothing.
    bool hasAllHeaders() const;

    /// "Message-ID:", or for a message without one a text made of its subject, date and recipient.  Nothing
    /// makes sure that it is unique.
    std::string messageID();
    /// When the message was delivered: by its envelope line, else by "Date:", else now.
    Date dateReceived();
    /// The same, but nullopt where neither line has a date that can be read.
    std::optional<Date> knownDateReceived();
    std::string sender();
    std::string subject();
    /// What a listing shows.  Reads the header block of an unread message once, decodes no more of it than
    /// this, and keeps nothing.
    HeaderSummary summary();
    /// The addresses of the first "To:" and the first "Cc:".
    std::vector<std::string> recipients();
    /// Gives a message that has no envelope line one, made of its sender and date, as an mbox needs it.  Not a
    /// message whose headers cannot be had: an envelope line would make it look like an empty one.
    void appendFromSpaceIfMissing();

    /// The header block with its final empty line.  For unchanged headers the very bytes of the store, also
    /// from encodedHeadersForDelivery(); nullopt when the store has none.
    std::optional<Data> encodedHeaders();             ///< with the envelope line
    std::optional<Data> encodedHeadersForDelivery();  ///< without it

    /// Drops what the store can give again: all headers, with any change made to them.
    void flushCachedData();
    /// A rough weight for the message cache.
    std::size_t cachedDataSize() const;
    /// The cached headers held, which is all that is lost with this object once it is flushed; nullopt when
    /// more is, since headers were changed.
    std::optional<CachedHeaders> remains() const;
    std::string description() const;

private:
    /// What flushCachedData() drops.
    struct Tables {
        std::optional<HeaderDictionary> headers;  // nullopt: to be loaded
        std::optional<HeaderOrder> order;
        OriginalKeys names;
    };

    std::optional<Data> _encodedHeadersIncludingFromSpace(bool fromSpace);
    std::optional<Data> headerDataOfSource() const;
    /// The tables with all headers, for good.
    std::shared_ptr<const Tables> loadedTables();
    std::shared_ptr<const Tables> tablesOfBlock(const std::optional<Data>& block);
    /// The tables for a change: ours alone.
    Tables& tablesToChange() LORVALE_REQUIRES(_mutex);
    void load();
    template <class Look>
    auto read(Look look);
    std::optional<std::string> textForKey(std::string_view key);
    std::string envelopeText();
    /// The header block, if it is all that a summary needs.
    std::optional<Data> blockForSummary();

    mutable SmallMutex _mutex;  // not held while anything is read or decoded
    bool _headersChanged LORVALE_GUARDED_BY(_mutex) = false;
    bool _hasCachedHeaders LORVALE_GUARDED_BY(_mutex) = false;
    mutable bool _tablesAreShared LORVALE_GUARDED_BY(_mutex) = false;  // others may be reading them
    std::weak_ptr<Message> _message LORVALE_GUARDED_BY(_mutex);
    CachedHeaders _cachedHeaders LORVALE_GUARDED_BY(_mutex);
    std::shared_ptr<Tables> _tables LORVALE_GUARDED_BY(_mutex);  // null: nothing loaded
};

}  // namespace lorvale
