#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "lorvale/export.h"
#include "lorvale/values/range.h"

namespace lorvale {

/// Immutable bytes behind a shared owner.  Copies and slices share the owner and cost no copy of the bytes;
/// a mapped file is a Data too.  The bytes stay good for as long as any Data on them lives.  May be read by
/// several threads.  A moved-from Data is empty.  Where "no data" differs from "empty data", an operation
/// answers std::optional<Data>.
class LORVALE_EXPORT Data {
public:
    Data() = default;
    Data(const Data&) = default;
    Data& operator=(const Data&) = default;
    Data(Data&& other) noexcept
        : _owner(std::move(other._owner)),
          _bytes(std::exchange(other._bytes, nullptr)),
          _size(std::exchange(other._size, 0)) {}
    Data& operator=(Data&& other) noexcept {
        Data taken(std::move(other));
        std::swap(_owner, taken._owner);
        std::swap(_bytes, taken._bytes);
        std::swap(_size, taken._size);
        return *this;
    }
    ~Data() = default;

    /// The bytes of `bytes`, moved, not copied.
    explicit Data(std::string&& bytes);
    /// Bytes that `owner` keeps alive.
    Data(std::shared_ptr<const void> owner, const std::uint8_t* bytes, std::size_t size)
        : _owner(std::move(owner)), _bytes(bytes), _size(size) {}
    [[nodiscard]] static Data copyOf(std::string_view bytes);
    [[nodiscard]] static Data copyOf(std::span<const std::uint8_t> bytes);
    /// Bytes with static storage duration, such as a literal.
    [[nodiscard]] static Data ofStatic(std::string_view bytes);

    const std::uint8_t* bytes() const { return _bytes; }
    std::size_t size() const { return _size; }
    [[nodiscard]] bool empty() const { return _size == 0; }
    std::uint8_t operator[](std::size_t i) const { return _bytes[i]; }
    const std::uint8_t* begin() const { return _bytes; }
    const std::uint8_t* end() const { return _bytes + _size; }

    std::string_view view() const { return {reinterpret_cast<const char*>(_bytes), _size}; }
    std::span<const std::uint8_t> span() const { return {_bytes, _size}; }
    std::string toString() const { return std::string(view()); }

    /// A slice on the same owner.  A range that reaches past the end is cut off there.
    [[nodiscard]] Data subdata(Range range) const;
    /// The slice for a view into this data, which `part` must be.
    [[nodiscard]] Data subdata(std::string_view part) const;

    friend bool operator==(const Data& a, const Data& b) { return a.view() == b.view(); }

private:
    std::shared_ptr<const void> _owner;
    const std::uint8_t* _bytes = nullptr;
    std::size_t _size = 0;
};

/// Bytes under construction.  Grows by doubling; data() hands the storage over without copying.  A moved-from
/// buffer is empty and may be filled again.  One thread at a time.
class LORVALE_EXPORT ByteBuffer {
public:
    ByteBuffer() = default;
    /// A capacity of 0 becomes 1.
    explicit ByteBuffer(std::size_t capacity);
    ByteBuffer(ByteBuffer&&) noexcept;
    ByteBuffer& operator=(ByteBuffer&&) noexcept;
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;
    ~ByteBuffer();

    std::size_t size() const { return _size; }
    [[nodiscard]] bool empty() const { return _size == 0; }
    std::string_view view() const { return {reinterpret_cast<const char*>(_bytes), _size}; }
    std::uint8_t* bytes() { return _bytes; }

    void append(std::uint8_t byte) {
        if (_size == _capacity) grow(1);
        _bytes[_size++] = byte;
    }
    void append(char byte) { append(static_cast<std::uint8_t>(byte)); }
    /// The bytes may be some of this buffer's own.
    void append(std::string_view bytes);
    void append(const Data& data) { append(data.view()); }
    /// Forgets the bytes behind the first `size`.
    void truncate(std::size_t size) { _size = std::min(size, _size); }

    /// Room for `count` more bytes behind the present ones, for a writer that works on the memory itself;
    /// commit() then says how many it wrote.  The pointer is good until the next operation.
    std::uint8_t* reserve(std::size_t count) {
        if (_capacity - _size < count) grow(count);
        return _bytes + _size;
    }
    void commit(std::size_t count) { _size += count; }

    /// Everything appended so far, without a copy.  The buffer is empty afterwards.
    [[nodiscard]] Data data();

private:
    void grow(std::size_t atLeast);

    std::uint8_t* _bytes = nullptr;  // from malloc, so that growing can stay in place
    std::size_t _size = 0;
    std::size_t _capacity = 0;
};

}  // namespace lorvale
