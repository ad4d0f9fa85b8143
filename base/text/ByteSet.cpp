#include "base/text/ByteSet.h"

#include "lorvale/platform/exception.h"
#include "lorvale/values/format.h"

namespace lorvale {

namespace {

constexpr std::size_t kByteValues = 256;

void checkRange(Range range) {
    if (range.location <= kByteValues && range.length <= kByteValues - range.location) return;
    throw InvalidArgumentException(
        formatText("range extends beyond {0..255}: (KTRange) {%d, %d}", range.location, range.length));
}

constexpr ByteSet::Bitmap inverted(ByteSet::Bitmap set) {
    for (auto& byte : set) byte = static_cast<std::uint8_t>(~byte);
    return set;
}

constexpr ByteSet::Bitmap bitmapOfRange(std::size_t begin, std::size_t end) {
    ByteSet::Bitmap set{};
    for (auto byte = begin; byte < end; ++byte)
        set[byte / 8] = static_cast<std::uint8_t>(set[byte / 8] | 1u << (byte & 7));
    return set;
}

}  // namespace

ByteSet::ByteSet(Range range) {
    checkRange(range);
    mySet = bitmapOfRange(range.location, range.end());
}

const ByteSet& ByteSet::asciiWhitespaceSet() {
    static constexpr ByteSet set("\t\n\f\r ");
    return set;
}
const ByteSet& ByteSet::ASCIIByteSet() {
    static constexpr ByteSet set(bitmapOfRange(0, 0x80));
    return set;
}
const ByteSet& ByteSet::nonASCIIByteSet() {
    static constexpr ByteSet set(bitmapOfRange(0x80, kByteValues));
    return set;
}
ByteSet ByteSet::suspiciousCodepage1252ByteSet() {
    return ByteSet(bitmapOfRange(0x80, 0x9F));
}

ByteSet ByteSet::invertedSet() const {
    return ByteSet(inverted(mySet));
}

MutableByteSet ByteSet::mutableCopy() const {
    return MutableByteSet(*this);
}

std::size_t ByteSet::findMember(std::string_view text) const {
    std::size_t i = 0;
    while (i < text.size() && !byteIsMember(static_cast<std::uint8_t>(text[i]))) ++i;
    return i;
}

std::size_t ByteSet::findNonMember(std::string_view text) const {
    std::size_t i = 0;
    while (i < text.size() && byteIsMember(static_cast<std::uint8_t>(text[i]))) ++i;
    return i;
}

void MutableByteSet::addBytesInRange(Range range) {
    checkRange(range);
    const auto added = bitmapOfRange(range.location, range.end());
    for (std::size_t i = 0; i < mySet.size(); ++i) mySet[i] = static_cast<std::uint8_t>(mySet[i] | added[i]);
}

void MutableByteSet::removeBytesInRange(Range range) {
    checkRange(range);
    const auto removed = bitmapOfRange(range.location, range.end());
    for (std::size_t i = 0; i < mySet.size(); ++i) mySet[i] = static_cast<std::uint8_t>(mySet[i] & ~removed[i]);
}

void MutableByteSet::invert() {
    mySet = inverted(mySet);
}

Range rangeOfByteFromSet(const Data& data, const ByteSet& set) {
    return rangeOfByteFromSet(data, set, 0, {0, data.size()});
}

Range rangeOfByteFromSet(const Data& data, const ByteSet& set, unsigned options) {
    return rangeOfByteFromSet(data, set, options, {0, data.size()});
}

Range rangeOfByteFromSet(const Data& data, const ByteSet& set, unsigned, Range range) {
    if (range.location >= data.size()) return Range::notFound();
    const auto within = data.view().substr(range.location, range.length);
    const auto found = set.findMember(within);
    return found == within.size() ? Range::notFound() : Range{range.location + found, 1};
}

}  // namespace lorvale
