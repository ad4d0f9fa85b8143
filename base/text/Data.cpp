#include "lorvale/values/data.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <utility>

namespace lorvale {

Data::Data(std::string&& bytes) {
    const auto owner = std::make_shared<const std::string>(std::move(bytes));
    _bytes = reinterpret_cast<const std::uint8_t*>(owner->data());
    _size = owner->size();
    _owner = owner;
}

Data Data::copyOf(std::string_view bytes) {
    return Data(std::string(bytes));
}

Data Data::copyOf(std::span<const std::uint8_t> bytes) {
    return Data(std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

Data Data::ofStatic(std::string_view bytes) {
    return Data(nullptr, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

Data Data::subdata(Range range) const {
    const auto location = std::min(range.location, _size);
    const auto length = std::min(range.length, _size - location);
    return Data(_owner, _bytes + location, length);
}

Data Data::subdata(std::string_view part) const {
    if (part.empty()) return {};
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(part.data());
    assert(bytes >= _bytes && part.size() <= _size &&
           static_cast<std::size_t>(bytes - _bytes) <= _size - part.size());
    return Data(_owner, bytes, part.size());
}

ByteBuffer::ByteBuffer(std::size_t capacity) {
    grow(std::max<std::size_t>(capacity, 1));
}

ByteBuffer::ByteBuffer(ByteBuffer&& other) noexcept
    : _bytes(std::exchange(other._bytes, nullptr)),
      _size(std::exchange(other._size, 0)),
      _capacity(std::exchange(other._capacity, 0)) {}

ByteBuffer& ByteBuffer::operator=(ByteBuffer&& other) noexcept {
    ByteBuffer taken(std::move(other));
    std::swap(_bytes, taken._bytes);
    std::swap(_size, taken._size);
    std::swap(_capacity, taken._capacity);
    return *this;
}

ByteBuffer::~ByteBuffer() {
    std::free(_bytes);
}

void ByteBuffer::append(std::string_view bytes) {
    if (bytes.empty()) return;
    // Growing may move the storage, and the bytes with it when they lie in it.
    const auto own = view();
    const std::less<const char*> before;
    const bool isOwn = !before(bytes.data(), own.data()) && before(bytes.data(), own.data() + own.size());
    const auto offset = isOwn ? bytes.data() - own.data() : 0;
    auto* const room = reserve(bytes.size());
    std::memcpy(room, isOwn ? view().data() + offset : bytes.data(), bytes.size());
    _size += bytes.size();
}

void ByteBuffer::grow(std::size_t atLeast) {
    if (atLeast > SIZE_MAX / 2 - _size) throw std::bad_alloc();
    const auto capacity = std::max(_capacity * 2, _size + atLeast);
    auto* const bytes = static_cast<std::uint8_t*>(std::realloc(_bytes, capacity));
    if (bytes == nullptr) throw std::bad_alloc();
    _bytes = bytes;
    _capacity = capacity;
}

Data ByteBuffer::data() {
    const auto size = std::exchange(_size, 0);
    _capacity = 0;
    auto* const bytes = std::exchange(_bytes, nullptr);
    return Data(std::shared_ptr<const void>(bytes, std::free), bytes, size);
}

}  // namespace lorvale
