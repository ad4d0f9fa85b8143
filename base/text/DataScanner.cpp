#include "base/text/DataScanner.h"

#include <algorithm>
#include <limits>

#include "base/text/Ascii.h"
#include "base/text/DataUtils.h"

namespace lorvale {

void DataScanner::setData(Data data) {
    myData = std::move(data);
    myLocation = 0;
}

std::uint32_t DataScanner::limit() const {
    return static_cast<std::uint32_t>(
        std::min<std::size_t>(myData.size(), std::numeric_limits<std::uint32_t>::max()));
}

void DataScanner::setScanLocation(std::uint32_t location) {
    myLocation = std::min(location, limit());
}

void DataScanner::take(std::size_t count, Data* into) {
    if (into != nullptr) *into = myData.subdata(Range{myLocation, count});
    myLocation += static_cast<std::uint32_t>(count);
}

bool DataScanner::scanByte(std::uint8_t* byte) {
    if (isAtEnd()) return false;
    if (byte != nullptr) *byte = myData[myLocation];
    ++myLocation;
    return true;
}

namespace {

/// What a digit counts.  The letters are off, so that "A" to "F" count -10 to -5.  Numbers with letters do not
/// occur in what is read with this, and whoever met one has relied on the outcome ever since.
int digitValue(std::uint8_t c) {
    if (isAsciiDigit(c)) return c - '0';
    return c >= 'a' ? c - 0x6B : c - 0x4B;
}

bool isDigitOfBase(std::uint8_t c, unsigned base) {
    if (isAsciiDigit(c)) return c - '0' < static_cast<int>(base);
    return base == 16 && isAsciiHexDigit(c);
}

}  // namespace

bool DataScanner::scanInt(std::int32_t* value) {
    const auto text = rest();
    const auto byteAt = [&](std::size_t i) {
        return i < text.size() ? static_cast<std::uint8_t>(text[i]) : std::uint8_t{0};
    };
    std::size_t i = 0;
    const bool negative = byteAt(0) == '-';
    if (negative || byteAt(0) == '+') ++i;
    unsigned base = 10;
    if (byteAt(i) == '0') {
        ++i;
        base = 8;
        if (byteAt(i) == 'x' || byteAt(i) == 'X') {
            ++i;
            base = 16;
        }
    }
    std::uint32_t number = 0;  // wraps round
    for (; i < text.size() && isDigitOfBase(byteAt(i), base); ++i)
        number = number * base + static_cast<std::uint32_t>(digitValue(byteAt(i)));
    // Callers read numbers piece by piece: one that runs to the end may go on in what is still to come.
    if (i == text.size()) return false;
    if (value != nullptr) *value = static_cast<std::int32_t>(negative ? 0u - number : number);
    myLocation += static_cast<std::uint32_t>(i);
    return true;
}

bool DataScanner::scanData(std::string_view pattern, Data* into) {
    if (!rest().starts_with(pattern)) return false;
    take(pattern.size(), into);
    return true;
}

bool DataScanner::scanBytesFromSet(const ByteSet& set, Data* into) {
    const auto count = set.findNonMember(rest());
    if (count == 0) return false;
    take(count, into);
    return true;
}

bool DataScanner::scanUpToBytesFromSet(const ByteSet& set, Data* into) {
    const auto count = set.findMember(rest());
    if (count == 0) return false;
    take(count, into);
    return true;
}

bool DataScanner::scanUpToData(std::string_view pattern, Data* into) {
    const auto text = rest();
    const auto count = std::min(findBytes(text, pattern), text.size());
    if (count == 0) return false;
    take(count, into);
    return true;
}

bool DataScanner::scanUpToCString(std::string_view pattern, Data* into) {
    if (rest().starts_with(pattern)) return false;
    if (!scanUpToData(pattern, into)) take(0, into);
    return true;
}

std::optional<Data> DataScanner::nextTokenWithPunctuation(const ByteSet& punctuation) {
    if (isAtEnd()) return std::nullopt;
    Data token;
    if (!scanUpToBytesFromSet(punctuation, &token)) take(1, &token);
    return token;
}

}  // namespace lorvale
