#include "lorvale/toolkit/storage/bit_array.h"

#include <algorithm>
#include <bit>

#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

BitArray::BitArray(std::uint32_t bitCount) : words(Bit2WordLength(bitCount)), length(bitCount) {}
BitArray::~BitArray() = default;

void BitArray::SetLength(std::uint32_t newLength) {
    const std::size_t need = Bit2WordLength(newLength);
    if (newLength < length) {
        // What lies behind the new end must neither be counted nor come back when the array grows again.
        words[newLength >> 5] &= (1u << (newLength & 31)) - 1;
        std::fill(words.begin() + static_cast<std::ptrdiff_t>(need), words.end(), 0u);
    }
    if (need > words.size()) {
        words.resize(std::max(words.size() * 2, need));
    } else if (need * 2 < words.size()) {
        words.resize(need);
        words.shrink_to_fit();
    }
    length = newLength;
}

void BitArray::ClearAll() {
    std::fill(words.begin(), words.end(), 0u);
}

std::uint32_t BitArray::Count() const {
    std::uint32_t count = 0;
    for (std::uint32_t i = 0; i < Bit2WordLength(length); ++i)
        count += static_cast<std::uint32_t>(std::popcount(words[i]));
    return count;
}

void BitArray::Store(IAOutputBlock* output) const {
    output->WriteUInt32(length);
    for (std::uint32_t i = 0; i < Bit2WordLength(length); ++i) output->WriteUInt32(words[i]);
}

void BitArray::Restore(IAInputBlock* input) {
    const std::uint32_t newLength = input->ReadUInt32();
    IAAssertion(Bit2WordLength(newLength) <= input->Remaining() / 4, "bit array longer than its block",
                StorageInvalid);
    IAVector<std::uint32_t> newWords(Bit2WordLength(newLength));
    for (std::uint32_t& word : newWords) word = input->ReadUInt32();
    words = std::move(newWords);
    length = newLength;
}

}  // namespace brindle
