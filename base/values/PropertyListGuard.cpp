#include "base/values/PropertyListGuard.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <unordered_map>

namespace lorvale {

bool isBinaryPropertyList(std::string_view bytes) {
    return bytes.starts_with("bplist00");
}

// The binary form --------------------------------------------------------------------------------------------
//
//   8 bytes   "bplist00"
//             objects: a byte of kind (high half) and size (low half; 15: a number object with the size
//             follows), then the bytes, or for collections the numbers of the members, "ref size" bytes each a
//             table of the objects' offsets, "offset size" bytes each
//  32 bytes   trailer: 6 unused, offset size, ref size, number of objects, number of the top one, offset of the
//             table (8 bytes each).  All numbers have the most significant byte first.

namespace {

constexpr std::size_t kTrailerSize = 32;
constexpr std::size_t kCostOfValue = 64;  // bytes that a value takes beside its content, at least

class BinaryOverview {
public:
    BinaryOverview(std::string_view bytes, const PropertyListLimits& limits) : _bytes(bytes), _limits(limits) {}

    bool keepsWithin() {
        if (_bytes.size() < kTrailerSize + 8) return false;
        const auto trailer = _bytes.size() - kTrailerSize;
        _offsetSize = static_cast<std::uint8_t>(_bytes[trailer + 6]);
        _refSize = static_cast<std::uint8_t>(_bytes[trailer + 7]);
        _count = *number(trailer + 8, 8);
        const auto top = *number(trailer + 16, 8);
        _table = *number(trailer + 24, 8);
        if (_offsetSize == 0 || _offsetSize > 8 || _refSize == 0 || _refSize > 8) return false;
        if (_table > trailer || _count > (trailer - _table) / _offsetSize) return false;
        const auto shape = shapeOf(top, 1);
        return shape && shape->values <= _limits.values && shape->bytes <= 4 * _limits.bytes;
    }

private:
    /// What an object unfolds to.
    struct Shape {
        std::size_t values = 1, bytes = kCostOfValue, height = 1;
        bool open = true;  // still being looked at: a reference to it would be a circle
    };

    std::optional<std::uint64_t> number(std::uint64_t offset, std::size_t size) const {
        if (size == 0 || size > 8 || offset > _bytes.size() || size > _bytes.size() - offset)
            return std::nullopt;
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i)
            value = value << 8 | static_cast<std::uint8_t>(_bytes[offset + i]);
        return value;
    }

    /// Null: out of the file, in a circle, or over a limit.
    std::optional<Shape> shapeOf(std::uint64_t object, std::size_t depth) {
        if (object >= _count || depth > _limits.depth) return std::nullopt;
        const auto [known, isNew] = _shapes.try_emplace(object);
        if (!isNew) {
            const auto& shape = known->second;
            const bool fits = !shape.open && depth + shape.height - 1 <= _limits.depth;
            return fits ? std::optional(shape) : std::nullopt;
        }
        auto shape = newShapeOf(object, depth);
        if (!shape) return std::nullopt;
        shape->open = false;
        _shapes[object] = *shape;
        return shape;
    }

    struct Object {
        std::uint64_t kind = 0, size = 0, content = 0;  // content: where it starts
        bool isText() const { return kind >= 0x5 && kind <= 0x7; }
        bool isCounted() const { return kind >= 0x4 && kind <= 0x7; }
        bool isCollection() const { return kind >= 0xA && kind <= kDictionary; }
    };
    static constexpr std::uint64_t kDictionary = 0xD;

    std::optional<Object> objectAt(std::uint64_t index) const {
        const auto offset = number(_table + index * _offsetSize, _offsetSize);
        const auto marker = offset ? number(*offset, 1) : std::nullopt;
        if (!marker) return std::nullopt;
        Object object{*marker >> 4, *marker & 0x0F, *offset + 1};
        if ((object.isCounted() || object.isCollection()) && object.size == 0x0F) {
            const auto sizeMarker = number(object.content, 1);
            if (!sizeMarker || *sizeMarker >> 4 != 0x1 || (*sizeMarker & 0x0F) > 3) return std::nullopt;
            const auto sizeOfSize = std::size_t{1} << (*sizeMarker & 0x0F);
            const auto size = number(object.content + 1, sizeOfSize);
            if (!size) return std::nullopt;
            object.size = *size;
            object.content += 1 + sizeOfSize;
        }
        return object.size <= _bytes.size() ? std::optional(object) : std::nullopt;
    }

    std::optional<Shape> newShapeOf(std::uint64_t index, std::size_t depth) {
        const auto object = objectAt(index);
        if (!object) return std::nullopt;
        Shape shape;
        if (object->isCounted()) shape.bytes += 3 * object->size;  // UTF-16 units may become three bytes
        return object->isCollection() ? shapeWithMembers(shape, *object, depth) : shape;
    }

    std::optional<Shape> shapeWithMembers(Shape shape, const Object& object, std::size_t depth) {
        const bool isDictionary = object.kind == kDictionary;
        const auto count = isDictionary ? 2 * object.size : object.size;
        for (std::uint64_t i = 0; i < count; ++i) {
            const auto reference = number(object.content + i * _refSize, _refSize);
            const auto member = reference ? shapeOf(*reference, depth + 1) : std::nullopt;
            if (!member || (isDictionary && i < object.size && !canBeKey(*reference))) return std::nullopt;
            shape.values += member->values;
            shape.bytes += member->bytes;
            shape.height = std::max(shape.height, member->height + 1);
            if (shape.values > _limits.values || shape.bytes > 4 * _limits.bytes) return std::nullopt;
        }
        return shape;
    }

    /// The library behind this ends the process over a key with a zero in it.
    bool canBeKey(std::uint64_t index) const {
        const auto object = objectAt(index);
        if (!object || !object->isText()) return false;
        const std::size_t width = object->kind == 0x5 ? 1 : 2;
        for (std::uint64_t i = 0; i < object->size; ++i)
            if (number(object->content + i * width, width).value_or(0) == 0) return false;
        return true;
    }

    const std::string_view _bytes;
    const PropertyListLimits& _limits;
    std::size_t _offsetSize = 0, _refSize = 0;
    std::uint64_t _count = 0, _table = 0;
    std::unordered_map<std::uint64_t, Shape> _shapes;
};

}  // namespace

bool binaryPropertyListKeepsWithin(std::string_view bytes, const PropertyListLimits& limits) {
    return bytes.size() <= limits.bytes && BinaryOverview(bytes, limits).keepsWithin();
}

// The XML form -----------------------------------------------------------------------------------------------

namespace {

/// Takes everything through `end` off the text; false when it does not occur.
bool skipThrough(std::string_view& text, std::string_view end) {
    const auto found = text.find(end);
    if (found == std::string_view::npos) return false;
    text.remove_prefix(found + end.size());
    return true;
}

/// What begins with "<!" or "<?" and may hold marks that are no tags.
bool skipSpecial(std::string_view& text) {
    if (text.starts_with("<!--")) {
        text.remove_prefix(4);
        return skipThrough(text, "-->");
    }
    if (text.starts_with("<![CDATA[")) return skipThrough(text, "]]>");
    if (text.starts_with("<?")) return skipThrough(text, "?>");
    const auto declaration = text.substr(0, text.find('>'));
    // No property list brings definitions of its own.
    return declaration.find('[') == std::string_view::npos && skipThrough(text, ">");
}

}  // namespace

bool xmlPropertyListKeepsWithin(std::string_view text, const PropertyListLimits& limits) {
    if (text.size() > limits.bytes) return false;
    std::size_t depth = 0, tags = 0;
    for (;;) {
        text.remove_prefix(std::min(text.find('<'), text.size()));
        if (text.empty()) return true;
        if (text.starts_with("<!") || text.starts_with("<?")) {
            if (!skipSpecial(text)) return false;
            continue;
        }
        const auto end = text.find_first_of("<>", 1);
        if (end == std::string_view::npos || text[end] == '<') return false;  // a tag within a tag
        const bool closes = text[1] == '/', isEmpty = text[end - 1] == '/';
        if (closes && depth-- == 0) return false;
        if (!closes && !isEmpty && ++depth > limits.depth + 2)
            return false;  // "plist" and the last text count too
        if (++tags > 3 * limits.values) return false;
        text.remove_prefix(end + 1);
    }
}

}  // namespace lorvale
