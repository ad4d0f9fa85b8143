#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "base/text/Utf16.h"
#include "base/values/PropertyListForms.h"

// The binary form.
//
//   8 bytes   "bplist00"
//             objects: a byte of kind (high half) and size (low half; 15: a number object with the size
//             follows), then the bytes, or for collections the numbers of the members, "ref size" bytes each
//             a table of the objects' offsets, "offset size" bytes each
//  32 bytes   trailer: 6 unused, offset size, ref size, number of objects, number of the top one, offset of the
//             table (8 bytes each).  All numbers have the most significant byte first.

namespace lorvale {

namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;
constexpr std::size_t kCostOfValue = 64;        // bytes that a value takes beside its content, at least
constexpr double kStartOf2001 = 978'307'200.0;  // dates count from there

// What a file may unfold to.  Each reference in it takes a byte or more, so a file whose values refer to simple
// ones only keeps within its size times the cost of a value.
constexpr std::size_t kFreeBytes = 16 << 20, kMostUnfolded = 1 << 30;

/// Thrown and caught in this file: the file is damaged or goes beyond a limit.
struct Refused {};

void require(bool condition) {
    if (!condition) throw Refused();
}

class BinaryReader {
public:
    explicit BinaryReader(std::string_view bytes)
        : _bytes(bytes), _budget(kFreeBytes + std::min(kCostOfValue * bytes.size(), kMostUnfolded)) {}

    PropertyList read() {
        require(_bytes.size() >= kMagic.size() + kTrailerSize);
        const auto trailer = _bytes.size() - kTrailerSize;
        _offsetSize = number(trailer + 6, 1);
        _refSize = number(trailer + 7, 1);
        _count = number(trailer + 8, 8);
        _table = number(trailer + 24, 8);
        require(_offsetSize >= 1 && _offsetSize <= 8 && _refSize >= 1 && _refSize <= 8);
        require(_table <= trailer && _count <= (trailer - _table) / _offsetSize);
        return value(number(trailer + 16, 8), 0);
    }

private:
    enum Kind : std::uint8_t {
        kSimple = 0x0,
        kInteger = 0x1,
        kReal = 0x2,
        kDate = 0x3,
        kData = 0x4,
        kAscii = 0x5,
        kUtf16 = 0x6,
        kUtf8 = 0x7,
        kUid = 0x8,
        kArray = 0xA,
        kOrderedSet = 0xB,
        kSet = 0xC,
        kDictionary = 0xD,
    };
    struct Object {
        std::uint64_t kind, size, content;  // content: where it starts
    };

    std::string_view slice(std::uint64_t offset, std::uint64_t size) const {
        require(offset <= _bytes.size() && size <= _bytes.size() - offset);
        return _bytes.substr(offset, size);
    }

    std::uint64_t number(std::uint64_t offset, std::uint64_t size) const {
        std::uint64_t value = 0;
        for (const char byte : slice(offset, size)) value = value << 8 | static_cast<std::uint8_t>(byte);
        return value;
    }

    /// What a value takes in memory, also each further time it is referred to.
    void spend(std::uint64_t bytes) {
        require(bytes <= _budget);
        _budget -= bytes;
    }

    Object objectAt(std::uint64_t index) {
        require(index < _count);
        const auto offset = number(_table + index * _offsetSize, _offsetSize);
        const auto marker = number(offset, 1);
        Object object{marker >> 4, marker & 0x0F, offset + 1};
        const bool isCounted = object.kind >= kData && object.kind != kUid;
        if (isCounted && object.size == 0x0F) {
            const auto sizeMarker = number(object.content, 1);
            require(sizeMarker >> 4 == kInteger && (sizeMarker & 0x0F) <= 3);
            const auto sizeOfSize = std::uint64_t{1} << (sizeMarker & 0x0F);
            object.size = number(object.content + 1, sizeOfSize);
            object.content += 1 + sizeOfSize;
        }
        require(object.size <= _bytes.size());
        spend(kCostOfValue + object.size);
        return object;
    }

    PropertyList value(std::uint64_t index, std::size_t levels) {
        const auto object = objectAt(index);
        switch (object.kind) {
            case kSimple:
                require(object.size == 0 || object.size == 8 || object.size == 9);
                return object.size == 0 ? PropertyList() : PropertyList(object.size == 9);
            case kInteger:
                return integer(object);
            case kUid:
                require(object.size < 8);
                return cutOff(number(object.content, object.size + 1));
            case kReal:
                return real(object);
            case kDate:
                return date(object);
            case kData:
                return Data::copyOf(slice(object.content, object.size));
            case kArray:
            case kOrderedSet:
            case kSet:
                return array(object, levels + 1);
            case kDictionary:
                return dictionary(object, levels + 1);
            default:
                return text(object);
        }
    }

    static std::int64_t cutOff(std::uint64_t value) {
        constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        return static_cast<std::int64_t>(std::min(value, kMost));
    }

    /// Up to four bytes without a sign, eight with one; sixteen are for what eight cannot hold.
    std::int64_t integer(const Object& object) const {
        require(object.size <= 4);
        const auto size = std::uint64_t{1} << object.size;
        if (size < 16) return static_cast<std::int64_t>(number(object.content, size));
        const auto high = static_cast<std::int64_t>(number(object.content, 8));
        if (high < -1) return std::numeric_limits<std::int64_t>::min();
        if (high > 0) return std::numeric_limits<std::int64_t>::max();
        const auto low = number(object.content + 8, 8);
        if (high == 0) return cutOff(low);
        return -1 - cutOff(~low);
    }

    double real(const Object& object) const {
        require(object.size == 2 || object.size == 3);
        const auto bits = number(object.content, object.size == 2 ? 4 : 8);
        return object.size == 2 ? static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits)))
                                : std::bit_cast<double>(bits);
    }

    Date date(const Object& object) const {
        require(object.size == 3);
        const auto seconds = std::floor(std::bit_cast<double>(number(object.content, 8)) + kStartOf2001);
        require(std::abs(seconds) < 1e15);  // false for what is no number, too
        const Date date(static_cast<std::int64_t>(seconds));
        require(static_cast<double>(date.secondsSince1970()) == seconds);  // else it was cut off
        return date;
    }

    std::string text(const Object& object) const {
        if (object.kind == kUtf16) {
            require(object.size <= _bytes.size() / 2);
            // Told the order of bytes, the decoder takes no character for a mark of it.
            return *decodeUtf16("\xFE\xFF" + std::string(slice(object.content, 2 * object.size)), true);
        }
        require(object.kind == kAscii || object.kind == kUtf8);
        return std::string(slice(object.content, object.size));
    }

    std::uint64_t member(const Object& object, std::uint64_t position) const {
        return number(object.content + position * _refSize, _refSize);
    }

    PropertyList::Array array(const Object& object, std::size_t levels) {
        require(levels <= PropertyList::kMostLevels);
        PropertyList::Array entries;
        for (std::uint64_t i = 0; i < object.size; ++i) entries.push_back(value(member(object, i), levels));
        return entries;
    }

    PropertyList::Dictionary dictionary(const Object& object, std::size_t levels) {
        require(levels <= PropertyList::kMostLevels);
        PropertyList::Dictionary entries;
        for (std::uint64_t i = 0; i < object.size; ++i) {
            auto key = text(objectAt(member(object, i)));
            entries.insert_or_assign(std::move(key), value(member(object, object.size + i), levels));
        }
        return entries;
    }

    const std::string_view _bytes;
    std::uint64_t _budget;
    std::uint64_t _offsetSize = 0, _refSize = 0, _count = 0, _table = 0;
};

}  // namespace

bool isBinaryPropertyList(std::string_view bytes) {
    return bytes.starts_with(kMagic);
}

std::optional<PropertyList> propertyListFromBinary(std::string_view bytes) try {
    return BinaryReader(bytes).read();
} catch (const Refused&) {
    return std::nullopt;
}

}  // namespace lorvale
