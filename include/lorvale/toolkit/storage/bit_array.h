#pragma once
#include <cstdint>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/memory.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

class IAInputBlock;
class IAOutputBlock;

/// A run of bits.  Bit n is bit `n & 31` of word `n >> 5`, least significant first, and there is always one
/// word more than the whole words before the length.
///
/// Stored form, all big-endian 32-bit: the length in bits, then Bit2WordLength(length) words.
/// The bits 0 and 2 of a length of 3:  00 00 00 03  00 00 00 05
class LORVALE_EXPORT BitArray : public IAObject {
public:
    static constexpr std::uint32_t Bit2WordLength(std::uint32_t bitCount) { return (bitCount >> 5) + 1; }

    explicit BitArray(std::uint32_t length = 0);
    ~BitArray() override;

    std::uint32_t Length() const { return length; }
    /// Keeps the bits below both lengths; new ones are clear.
    void SetLength(std::uint32_t newLength);

    // No bounds are checked.
    bool Get(std::uint32_t bit) const { return (words[bit >> 5] >> (bit & 31) & 1) != 0; }
    void Set(std::uint32_t bit) { words[bit >> 5] |= 1u << (bit & 31); }
    void Clear(std::uint32_t bit) { words[bit >> 5] &= ~(1u << (bit & 31)); }
    void ClearAll();
    std::uint32_t Count() const;

    std::uint32_t StoreSize() const { return Bit2WordLength(length) * 4 + 4; }
    void Store(IAOutputBlock* output) const;
    /// Takes on what Store() wrote.  Raises "bit array longer than its block" (StorageInvalid) for a length
    /// that the block cannot hold; the array is then as it was.
    void Restore(IAInputBlock* input);

private:
    IAVector<std::uint32_t> words;  // all of the capacity
    std::uint32_t length;
};

}  // namespace brindle
