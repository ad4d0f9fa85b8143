#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "lorvale/toolkit/storage/block.h"

namespace brindle {

// A text inside a stored document: its length as a VInt32, then the bytes.  Reading raises StorageInvalid for a
// length that the block or the bytes cannot hold.

inline std::uint32_t StoredTextSize(std::string_view text) {
    const auto length = static_cast<std::uint32_t>(text.size());
    return VInt32Size(length) + length;
}

inline void StoreText(std::string_view text, IAOutputBlock* output) {
    VInt32Write(static_cast<std::uint32_t>(text.size()), output);
    output->WriteBuffer(text.data(), static_cast<std::uint32_t>(text.size()));
}

inline std::string RestoreBytes(std::uint32_t length, IAInputBlock* input) {
    IAAssertion(length <= input->Remaining(), "document longer than its block", StorageInvalid);
    std::string bytes(length, '\0');
    input->ReadBuffer(bytes.data(), length);
    return bytes;
}

inline std::string RestoreText(IAInputBlock* input) {
    return RestoreBytes(VInt32Read(input), input);
}

/// Takes the text from the front of `from`.
inline std::string_view TakeText(std::span<const std::uint8_t>& from) {
    const std::uint32_t length = VInt32Read(from);
    IAAssertion(length <= from.size(), "document longer than its block", StorageInvalid);
    const std::string_view text(reinterpret_cast<const char*>(from.data()), length);
    from = from.subspan(length);
    return text;
}

}  // namespace brindle
