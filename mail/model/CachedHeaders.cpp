#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <type_traits>
#include <utility>
#include <vector>

#include "lorvale/message/headers.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/values/text.h"
#include "mail/model/CachedHeadersOfMany.h"

namespace lorvale {

namespace {

constexpr auto kCachedKeys = std::to_array<std::string_view>({"from", "subject", "date"});
constexpr auto kUsualKeys =
    std::to_array<std::string_view>({"from", "subject", "date", "From", "Subject", "Date"});

using KeyNumber = std::uint32_t;

/// The other names that were ever used as a key, numbered behind the usual ones.
class SharedKeys {
public:
    static SharedKeys& table() {
        static auto& table = *new SharedKeys;  // never freed: messages may outlive the end of main
        return table;
    }
    KeyNumber numberOf(std::string_view name) {
        const MutexLock lock(_mutex);
        const auto next = static_cast<KeyNumber>(kUsualKeys.size() + _names.size());
        const auto found = _numbers.lower_bound(name);
        if (found != _numbers.end() && found->first == name) return found->second;
        _names.push_back(_numbers.emplace_hint(found, name, next)->first);
        return next;
    }
    std::string_view name(KeyNumber number) {
        const MutexLock lock(_mutex);
        return _names[number - kUsualKeys.size()];
    }

private:
    Mutex _mutex;
    std::map<std::string, KeyNumber, std::less<>> _numbers LORVALE_GUARDED_BY(_mutex);
    std::vector<std::string_view> _names LORVALE_GUARDED_BY(_mutex);  // of the map's keys
};

KeyNumber keyNumber(std::string_view name) {
    const auto* const usual = std::ranges::find(kUsualKeys, name);
    return usual != kUsualKeys.end() ? static_cast<KeyNumber>(usual - kUsualKeys.begin())
                                     : SharedKeys::table().numberOf(name);
}

std::string_view keyName(KeyNumber number) {
    return number < kUsualKeys.size() ? kUsualKeys[number] : SharedKeys::table().name(number);
}

static_assert(std::is_trivially_copyable_v<Date>, "kept as its bytes");

constexpr std::uint32_t kLongestValue = 0x0FFF'FFFF;  // in bytes; no real header comes near

}  // namespace

std::string_view sharedHeaderKey(std::string_view name) {
    return keyName(keyNumber(name));
}

// In memory only, in the byte order of the machine:
//   4 bytes     the length of all records
//   per record  a Record, then the bytes of the text or of the Date
struct CachedHeaders::Record {
    KeyNumber key = 0, spelling = 0;
    std::uint32_t isDate : 1 = 0, length : 31 = 0;

    static Record at(const char* bytes) {
        Record record;
        std::memcpy(&record, bytes, sizeof record);
        return record;
    }
    const char* next(const char* bytes) const { return bytes + sizeof *this + length; }
    HeaderValue value(const char* bytes) const {
        if (isDate == 0) return std::string(text(bytes));
        Date date;
        std::memcpy(static_cast<void*>(&date), bytes + sizeof *this, sizeof date);
        return date;
    }
    std::string_view text(const char* bytes) const { return {bytes + sizeof *this, length}; }
};

CachedHeaders::const_iterator CachedHeaders::begin() const {
    return const_iterator(_records ? _records.get() + sizeof(std::uint32_t) : nullptr);
}

CachedHeaders::const_iterator CachedHeaders::end() const {
    if (!_records) return const_iterator(nullptr);
    std::uint32_t length = 0;
    std::memcpy(&length, _records.get(), sizeof length);
    return const_iterator(_records.get() + sizeof length + length);
}

CachedHeaders::Entry CachedHeaders::const_iterator::operator*() const {
    const auto record = Record::at(_record);
    return {keyName(record.key), record.value(_record)};
}

CachedHeaders::const_iterator& CachedHeaders::const_iterator::operator++() {
    _record = Record::at(_record).next(_record);
    return *this;
}

std::size_t CachedHeaders::size() const {
    std::size_t count = 0;
    for (auto each = begin(); each != end(); ++each) ++count;
    return count;
}

void CachedHeaders::set(std::string_view key, const HeaderValue& value) {
    set(key, key, value);
}

void CachedHeaders::set(std::string_view key, std::string_view spelling, const HeaderValue& value) {
    const auto* const text = std::get_if<std::string>(&value);
    const auto bytes =
        text != nullptr
            ? std::string_view(*text).substr(0, kLongestValue)
            : std::string_view(reinterpret_cast<const char*>(std::get_if<Date>(&value)), sizeof(Date));
    Record record;
    record.key = keyNumber(key);
    record.spelling = keyNumber(spelling);
    record.isDate = text == nullptr ? 1 : 0;
    record.length = static_cast<std::uint32_t>(bytes.size()) & kLongestValue;

    std::string records;
    bool replaced = false;
    const auto add = [&] {
        if (std::exchange(replaced, true)) return;
        records.append(reinterpret_cast<const char*>(&record), sizeof record).append(bytes);
    };
    for (auto each = begin(); each != end(); ++each) {
        const auto old = Record::at(each._record);
        if (old.key == record.key) {
            add();
        } else {
            records.append(each._record, old.next(each._record));
        }
    }
    add();
    const auto length = static_cast<std::uint32_t>(records.size());
    const auto packed = std::make_shared<char[]>(sizeof length + length);
    std::memcpy(packed.get(), &length, sizeof length);
    std::ranges::copy(records, packed.get() + sizeof length);
    _records = packed;
}

std::optional<HeaderValue> CachedHeaders::find(std::string_view key) const {
    for (auto each = begin(); each != end(); ++each) {
        const auto record = Record::at(each._record);
        if (keyName(record.key) == key) return record.value(each._record);
    }
    return std::nullopt;
}

std::string CachedHeaders::textForKey(std::string_view key) const {
    return std::string(CachedHeadersOfMany::textOf(*this, key));
}

CachedHeaders CachedHeaders::withLowerCaseKeys() const {
    bool changesNothing = true;
    for (auto each = begin(); each != end(); ++each) {
        const auto record = Record::at(each._record);
        changesNothing = changesNothing && record.key < kCachedKeys.size();
    }
    if (changesNothing) return *this;
    CachedHeaders lower;
    for (auto each = begin(); each != end(); ++each) {
        const auto [key, value] = *each;
        lower.set(lowercased(key), keyName(Record::at(each._record).spelling), value);
    }
    return lower;
}

std::optional<std::string_view> CachedHeaders::spellingOfKey(std::string_view key) const {
    for (auto each = begin(); each != end(); ++each) {
        const auto record = Record::at(each._record);
        if (keyName(record.key) == key) return keyName(record.spelling);
    }
    return std::nullopt;
}

CachedHeadersOfMany::CachedHeadersOfMany(std::size_t expectedSize) : _bytes(expectedSize) {}

void CachedHeadersOfMany::beginMessage() {
    endMessage();
    _starts.push_back(_bytes.size());
    std::memset(_bytes.reserve(sizeof(std::uint32_t)), 0, sizeof(std::uint32_t));
    _bytes.commit(sizeof(std::uint32_t));
}

void CachedHeadersOfMany::endMessage() {
    if (_starts.empty()) return;
    const auto length = static_cast<std::uint32_t>(_bytes.size() - _starts.back() - sizeof(std::uint32_t));
    std::memcpy(_bytes.bytes() + _starts.back(), &length, sizeof length);
}

void CachedHeadersOfMany::add(std::string_view cachedKey, std::string_view text) {
    addRecord(cachedKey, false, text);
}

void CachedHeadersOfMany::add(std::string_view cachedKey, const Date& date) {
    addRecord(cachedKey, true, {reinterpret_cast<const char*>(&date), sizeof date});
}

void CachedHeadersOfMany::addRecord(std::string_view cachedKey, bool isDate, std::string_view bytes) {
    bytes = bytes.substr(0, kLongestValue);
    CachedHeaders::Record record;
    record.key = record.spelling = keyNumber(cachedKey);
    record.isDate = isDate ? 1 : 0;
    record.length = static_cast<std::uint32_t>(bytes.size()) & kLongestValue;
    auto* const place = _bytes.reserve(sizeof record + bytes.size());
    std::memcpy(place, &record, sizeof record);
    if (!bytes.empty()) std::memcpy(place + sizeof record, bytes.data(), bytes.size());
    _bytes.commit(sizeof record + bytes.size());
}

/// Its records, until the function answers true.
template <class Use>
void CachedHeadersOfMany::forEachRecord(const CachedHeaders& headers, Use use) {
    if (!headers._records) return;
    std::uint32_t length = 0;
    std::memcpy(&length, headers._records.get(), sizeof length);
    const auto* at = headers._records.get() + sizeof length;
    for (const auto* const end = at + length; at != end;) {
        const auto record = CachedHeaders::Record::at(at);
        if (use(record, at)) return;
        at = record.next(at);
    }
}

std::string_view CachedHeadersOfMany::textOf(const CachedHeaders& headers, std::string_view key) {
    std::string_view text;
    forEachRecord(headers, [&](const auto& record, const char* bytes) {
        const bool isIt = keyName(record.key) == key;
        if (isIt && record.isDate == 0) text = record.text(bytes);
        return isIt;
    });
    return text;
}

CachedHeadersOfMany::Values CachedHeadersOfMany::valuesOf(const CachedHeaders& headers) {
    constexpr KeyNumber kFrom = 0, kSubject = 1, kDate = 2;
    static_assert(kCachedKeys[kFrom] == "from" && kCachedKeys[kSubject] == "subject" &&
                  kCachedKeys[kDate] == "date");
    Values values;
    forEachRecord(headers, [&](const auto& record, const char* bytes) {
        if (record.isDate != 0) {
            if (record.key == kDate)
                std::memcpy(static_cast<void*>(&values.date), bytes + sizeof record, sizeof values.date);
        } else if (record.key == kFrom) {
            values.from = record.text(bytes);
        } else if (record.key == kSubject) {
            values.subject = record.text(bytes);
        }
        return false;
    });
    return values;
}

std::vector<CachedHeaders> CachedHeadersOfMany::finish() {
    endMessage();
    const auto block = std::make_shared<const Data>(_bytes.data());
    const auto* const bytes = reinterpret_cast<const char*>(block->bytes());
    std::vector<CachedHeaders> all(_starts.size());
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i]._records = std::shared_ptr<const char[]>(block, bytes + _starts[i]);
    _starts.clear();
    return all;
}

bool operator==(const CachedHeaders& a, const CachedHeaders& b) {
    auto left = a.begin(), right = b.begin();
    for (; left != a.end() && right != b.end(); ++left, ++right) {
        if (*left != *right) return false;
    }
    return left == a.end() && right == b.end();
}

std::span<const std::string_view> MessageHeaders::cachedKeys() {
    return kCachedKeys;
}

}  // namespace lorvale
