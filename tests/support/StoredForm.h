#pragma once
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/toolkit/storage.h"
#include "tests/support/MemoryStoreStream.h"

namespace brindle::testing {

/// Bytes as hex digits.
inline std::string hexOf(std::string_view bytes) {
    std::string digits;
    for (const char byte : bytes)
        for (const int shift : {4, 0}) digits += "0123456789abcdef"[byte >> shift & 15];
    return digits;
}

inline void writeBlock(IAStorage& storage, std::uint32_t id, std::string_view bytes) {
    const auto size = static_cast<std::uint32_t>(bytes.size());
    IAOutputBlock block(&storage, id, size);
    block.WriteBuffer(bytes.data(), size);
}

/// The first `size` bytes of a block.
inline std::string readBlock(IAStorage& storage, std::uint32_t id, std::size_t size) {
    std::string bytes(size, '\0');
    IAInputBlock block(&storage, id);
    block.ReadBuffer(bytes.data(), static_cast<std::uint32_t>(size));
    return bytes;
}

/// The bytes as which an object is stored.
template <class Object>
std::string storedForm(const Object& object) {
    const auto bytes = std::make_shared<Bytes>();
    MemoryStoreStream stream(bytes);
    stream.Open(true);
    stream.SetPosition(0, object.StoreSize());
    {
        IAOutputBlock output(&stream);
        object.Store(&output);
    }
    stream.Flush();
    return {bytes->begin(), bytes->begin() + object.StoreSize()};
}

/// Calls `use` with a block of just these bytes.
template <class Use>
auto withBlockOf(std::string_view bytes, Use use) {
    MemoryStoreStream stream(std::make_shared<Bytes>(bytes.begin(), bytes.end()));
    stream.Open(false);
    stream.SetPosition(0, static_cast<std::uint32_t>(bytes.size()));
    IAInputBlock block(&stream);
    return use(&block);
}

}  // namespace brindle::testing
