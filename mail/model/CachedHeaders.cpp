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

namespace lorvale {

namespace {

constexpr auto kCachedKeys = std::to_array<std::string_view>({"from", "subject", "date"});
constexpr auto kUsualKeys =
    std::to_array<std::string_view>({"from", "subject", "date", "From", "Subject", "Date"});

using KeyNumber = std::uint32_t;
constexpr KeyNumber kFrom = 0, kSubject = 1, kDate = 2;
static_assert(kUsualKeys[kFrom] == "from" && kUsualKeys[kSubject] == "subject" && kUsualKeys[kDate] == "date");

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

    static void append(std::string& records, KeyNumber key, KeyNumber spelling, bool isDate,
                       std::string_view bytes);
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

namespace {

/// The bytes that a record keeps of a value.
std::string_view bytesOf(std::string_view text) {
    return text.substr(0, kLongestValue);
}

std::string_view bytesOf(const Date& date) {
    return {reinterpret_cast<const char*>(&date), sizeof date};
}

}  // namespace

void CachedHeaders::Record::append(std::string& records, KeyNumber key, KeyNumber spelling, bool isDate,
                                   std::string_view bytes) {
    Record record;
    record.key = key;
    record.spelling = spelling;
    record.isDate = isDate ? 1 : 0;
    record.length = static_cast<std::uint32_t>(bytes.size()) & kLongestValue;
    records.append(reinterpret_cast<const char*>(&record), sizeof record).append(bytes);
}

void CachedHeaders::keep(std::string_view records) {
    const auto length = static_cast<std::uint32_t>(records.size());
    const auto packed = std::make_shared_for_overwrite<char[]>(sizeof length + length);
    std::memcpy(packed.get(), &length, sizeof length);
    std::ranges::copy(records, packed.get() + sizeof length);
    _records = packed;
}

CachedHeaders CachedHeaders::ofListing(std::string_view subject, std::string_view from, const Date& date) {
    std::string records;
    records.reserve(3 * sizeof(Record) + subject.size() + from.size() + sizeof date);
    Record::append(records, kSubject, kSubject, false, bytesOf(subject));
    Record::append(records, kFrom, kFrom, false, bytesOf(from));
    Record::append(records, kDate, kDate, true, bytesOf(date));
    CachedHeaders listing;
    listing.keep(records);
    return listing;
}

void CachedHeaders::set(std::string_view key, std::string_view spelling, const HeaderValue& value) {
    const auto* const text = std::get_if<std::string>(&value);
    const auto number = keyNumber(key), spellingNumber = keyNumber(spelling);
    std::string records;
    bool replaced = false;
    const auto add = [&] {
        if (std::exchange(replaced, true)) return;
        Record::append(records, number, spellingNumber, text == nullptr,
                       text != nullptr ? bytesOf(*text) : bytesOf(*std::get_if<Date>(&value)));
    };
    for (auto each = begin(); each != end(); ++each) {
        const auto old = Record::at(each._record);
        if (old.key == number) {
            add();
        } else {
            records.append(each._record, old.next(each._record));
        }
    }
    add();
    keep(records);
}

std::optional<HeaderValue> CachedHeaders::find(std::string_view key) const {
    for (auto each = begin(); each != end(); ++each) {
        const auto record = Record::at(each._record);
        if (keyName(record.key) == key) return record.value(each._record);
    }
    return std::nullopt;
}

std::string CachedHeaders::textForKey(std::string_view key) const {
    for (auto each = begin(); each != end(); ++each) {
        const auto record = Record::at(each._record);
        if (keyName(record.key) == key)
            return record.isDate == 0 ? std::string(record.text(each._record)) : std::string();
    }
    return "";
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
