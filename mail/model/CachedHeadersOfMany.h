#pragma once
#include <cstddef>
#include <string_view>
#include <vector>

#include "lorvale/message/headers.h"
#include "lorvale/values/data.h"

namespace lorvale {

/// Makes the cached headers of a whole mailbox.  They all lie in one block of memory, which lives as long as
/// any of them: that takes a third less than a block for each message, and a fraction of the time.
class CachedHeadersOfMany {
public:
    /// `expectedSize` is about how many bytes of text will come.
    explicit CachedHeadersOfMany(std::size_t expectedSize = 0);
    /// What is added from now on belongs to the next message.
    void beginMessage();
    /// Each of cachedKeys() once a message at most.
    void add(std::string_view cachedKey, std::string_view text);
    void add(std::string_view cachedKey, const Date& date);
    /// Of each message, in order.
    std::vector<CachedHeaders> finish();
    /// CachedHeaders::textForKey() in place: good until the headers change.
    static std::string_view textOf(const CachedHeaders& headers, std::string_view key);
    /// All of cachedKeys() at once, in place; empty, and the date of 1970, where there is none.
    struct Values {
        std::string_view from, subject;
        Date date;
    };
    static Values valuesOf(const CachedHeaders& headers);

private:
    template <class Use>
    static void forEachRecord(const CachedHeaders& headers, Use use);
    void endMessage();
    void addRecord(std::string_view cachedKey, bool isDate, std::string_view bytes);

    ByteBuffer _bytes;
    std::vector<std::size_t> _starts;
};

}  // namespace lorvale
