#pragma once
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/text/ByteSet.h"
#include "lorvale/values/data.h"

namespace lorvale {

/// A position in a Data.  Mail code reads raw bytes with it and does not convert them to text first.  Bytes are
/// compared exactly and nothing is skipped unasked.  Results are slices of the data; each "into" may be null.
/// An operation that answers false leaves the location and the output as they were.  One thread at a time.
class DataScanner {
public:
    explicit DataScanner(Data data = {}) : myData(std::move(data)) {}
    static DataScanner scannerWithData(Data data) { return DataScanner(std::move(data)); }

    /// Also moves to the start.
    void setData(Data data);
    const Data& data() const { return myData; }
    std::uint32_t scanLocation() const { return myLocation; }
    /// A location past the end counts as the end.
    void setScanLocation(std::uint32_t location);
    bool isAtEnd() const { return myLocation >= limit(); }
    /// What lies between the location and the end; not kept alive by the view.
    std::string_view rest() const { return myData.view().substr(0, limit()).substr(myLocation); }

    /// 0 at the end.
    std::uint8_t byteAtScanLocation() const { return isAtEnd() ? std::uint8_t{0} : myData[myLocation]; }
    void incrementLocation() {
        if (!isAtEnd()) ++myLocation;
    }
    bool scanByte(std::uint8_t* byte);

    /// A number in decimal, octal ("0…") or hexadecimal ("0x…") with an optional sign; see the definition for
    /// what it makes of letters and of a number at the very end.
    bool scanInt(std::int32_t* value);

    /// The whole pattern must be here.
    bool scanData(std::string_view pattern, Data* into = nullptr);
    bool scanCString(std::string_view pattern, Data* into = nullptr) { return scanData(pattern, into); }
    /// The longest run of members; false when it is empty.
    bool scanBytesFromSet(const ByteSet& set, Data* into = nullptr);
    /// Everything up to the pattern, or to the end without one; false when that is empty.
    bool scanUpToData(std::string_view pattern, Data* into = nullptr);
    /// The same, but false only when the pattern stands right here: at the end it takes an empty piece.
    bool scanUpToCString(std::string_view pattern, Data* into = nullptr);
    /// The longest run of bytes that are no members; false when it is empty.
    bool scanUpToBytesFromSet(const ByteSet& set, Data* into = nullptr);
    /// One byte when it is punctuation, else everything up to the next punctuation or the end; nullopt at the
    /// end.
    std::optional<Data> nextTokenWithPunctuation(const ByteSet& punctuation);

private:
    /// Locations have 32 bits; what lies behind the first 4 GB of a larger buffer is out of reach.
    std::uint32_t limit() const;
    void take(std::size_t count, Data* into);

    Data myData;
    std::uint32_t myLocation = 0;
};

}  // namespace lorvale
