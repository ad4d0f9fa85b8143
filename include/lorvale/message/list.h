#pragma once
#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <mutex>
#include <vector>

#include "lorvale/export.h"

namespace lorvale {

class Message;

/// A list of messages that never changes: copies share it, so it is cheap to hand out, and who holds one may
/// walk it on any thread for as long as he likes.  What looks like a change makes another list, which shares
/// what it can: appending to a list of 100,000 copies some 500 pointers.  Holds no null: those given to it are
/// left out.  The object itself is as any value is: assigning to one that another thread reads needs a lock.
class LORVALE_EXPORT MessageList {
public:
    using value_type = std::shared_ptr<Message>;
    class const_iterator;
    using iterator = const_iterator;

    MessageList() = default;
    MessageList(std::initializer_list<value_type> messages) : MessageList(std::vector<value_type>(messages)) {}
    MessageList(std::vector<value_type> messages);  // implicit: a vector is how a list is put together

    std::size_t size() const { return _pieces ? _pieces->size : 0; }
    bool empty() const { return size() == 0; }
    /// Good as long as the list or a copy of it.
    const value_type& operator[](std::size_t index) const { return _pieces->at(index); }
    const value_type& front() const { return _pieces->at(0); }
    const value_type& back() const { return _pieces->at(size() - 1); }
    /// These and end() are good as long as the list or a copy of it.
    const_iterator begin() const;
    const_iterator end() const;

    /// Where the message stands; kNotFound (lorvale/values/range.h) when it does not.  One of the places, if
    /// there are several.  Takes constant time for a message that stands about where it did when its place was
    /// asked for last, in whatever list; else the logarithm of the size, after a preparation once for a list.
    std::size_t indexOf(const Message& message) const;

    /// This list with the others behind it.
    [[nodiscard]] MessageList appending(const MessageList& others) const;
    /// This list without any of these messages.  Linear in both.
    [[nodiscard]] MessageList removing(const MessageList& gone) const;
    std::vector<value_type> toVector() const;

    /// Whether both hold the same messages in the same order.
    friend LORVALE_EXPORT bool operator==(const MessageList& a, const MessageList& b);

private:
    static constexpr std::size_t kPieceSize = 256;  // about the square root of a large mailbox
    using Piece = std::vector<value_type>;
    struct Pieces {
        const value_type& at(std::size_t index) const {
            return (*pieces[index / kPieceSize])[index % kPieceSize];
        }
        std::vector<std::shared_ptr<const Piece>> pieces;  // all but the last one are full
        std::size_t size = 0;

        mutable std::once_flag placesMade;
        mutable std::vector<std::uint32_t> places;  // by address of the message, made when first needed
    };

    /// The first `kept` messages of this list, which are whole pieces or all, and the others behind them.
    MessageList continuedBy(std::size_t kept, std::vector<value_type> others) const;
    bool holds(const Message& message, std::size_t index) const {
        return index < size() && (*this)[index].get() == &message;
    }
    std::size_t findNear(const Message& message, std::size_t hint) const;
    std::size_t findByAddress(const Message& message) const;

    std::shared_ptr<const Pieces> _pieces;  // null: empty
};

class MessageList::const_iterator {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = MessageList::value_type;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = const value_type&;

    const_iterator() = default;

    reference operator*() const { return _pieces->at(static_cast<std::size_t>(_index)); }
    pointer operator->() const { return &**this; }
    reference operator[](difference_type offset) const { return *(*this + offset); }
    const_iterator& operator++() { return *this += 1; }
    const_iterator& operator--() { return *this += -1; }
    const_iterator operator++(int) { return const_iterator(_pieces, _index++); }
    const_iterator operator--(int) { return const_iterator(_pieces, _index--); }
    const_iterator& operator+=(difference_type offset) {
        _index += offset;
        return *this;
    }
    const_iterator& operator-=(difference_type offset) { return *this += -offset; }
    friend const_iterator operator+(const_iterator i, difference_type offset) { return i += offset; }
    friend const_iterator operator+(difference_type offset, const_iterator i) { return i += offset; }
    friend const_iterator operator-(const_iterator i, difference_type offset) { return i -= offset; }
    friend difference_type operator-(const_iterator a, const_iterator b) { return a._index - b._index; }
    friend bool operator==(const_iterator a, const_iterator b) { return a._index == b._index; }
    friend auto operator<=>(const_iterator a, const_iterator b) { return a._index <=> b._index; }

private:
    friend class MessageList;
    const_iterator(const Pieces* pieces, difference_type index) : _pieces(pieces), _index(index) {}

    const Pieces* _pieces = nullptr;
    difference_type _index = 0;
};

inline MessageList::const_iterator MessageList::begin() const {
    return {_pieces.get(), 0};
}
inline MessageList::const_iterator MessageList::end() const {
    return {_pieces.get(), static_cast<std::ptrdiff_t>(size())};
}

}  // namespace lorvale
