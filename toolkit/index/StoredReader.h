#pragma once
#include <cstdint>
#include <span>
#include <string_view>

#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/index/PostingCoding.h"

namespace brindle {

/// Reads the fields of a record in its stored form.  Raises StorePastBlockEnd where the bytes end too early.
class StoredReader {
public:
    explicit StoredReader(std::span<const std::uint8_t> bytes)
        : begin(bytes.data()), at(begin), end(begin + bytes.size()) {}

    std::uint32_t VInt32() {
        std::uint32_t value = 0;
        if (at != end && *at < 0x80) return *at++;
        at = TakeVInt32(at, end, value);
        IAAssertion(at != nullptr, "record longer than its block", StorePastBlockEnd);
        return value;
    }
    std::string_view Text(std::uint32_t length) {
        const auto* const text = reinterpret_cast<const char*>(at);
        Skip(length);
        return {text, length};
    }
    void Skip(std::uint32_t count) {
        IAAssertion(count <= static_cast<std::size_t>(end - at), "record longer than its block",
                    StorePastBlockEnd);
        at += count;
    }
    std::uint32_t Taken() const { return static_cast<std::uint32_t>(at - begin); }

private:
    const std::uint8_t* const begin;
    const std::uint8_t* at;
    const std::uint8_t* const end;
};

}  // namespace brindle
