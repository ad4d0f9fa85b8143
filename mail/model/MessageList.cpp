#include "lorvale/message/list.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <unordered_set>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/values/range.h"

namespace lorvale {

namespace {

// How far from its old place a message is looked for one by one: further than a few arrivals and removals move
// it, and cheaper than sorting the places of a new list.
constexpr std::size_t kNear = 64;

}  // namespace

MessageList::MessageList(std::vector<value_type> messages) {
    *this = MessageList().continuedBy(0, std::move(messages));
}

MessageList MessageList::continuedBy(std::size_t kept, std::vector<value_type> others) const {
    std::erase(others, nullptr);
    if (others.empty() && kept == size()) return *this;
    if (kept + others.size() == 0) return {};
    auto next = std::make_shared<Pieces>();
    next->size = kept + others.size();
    next->pieces.reserve((next->size + kPieceSize - 1) / kPieceSize);
    const auto whole = kept / kPieceSize;
    if (_pieces)
        std::ranges::copy_n(_pieces->pieces.begin(), static_cast<std::ptrdiff_t>(whole),
                            std::back_inserter(next->pieces));
    Piece piece;
    if (kept % kPieceSize != 0) piece = *_pieces->pieces[whole];
    for (std::size_t i = 0; i < others.size(); ++i) {
        if (piece.size() == piece.capacity())
            piece.reserve(std::min(kPieceSize, piece.size() + others.size() - i));
        // The first list that a message gets into is its store's, as a rule.
        if (others[i]->listHint() == Message::kNoHint) others[i]->setListHint(kept + i);
        piece.push_back(std::move(others[i]));
        if (piece.size() < kPieceSize) continue;
        next->pieces.push_back(std::make_shared<const Piece>(std::move(piece)));
        piece.clear();
    }
    if (!piece.empty()) next->pieces.push_back(std::make_shared<const Piece>(std::move(piece)));
    MessageList list;
    list._pieces = std::move(next);
    return list;
}

MessageList MessageList::appending(const MessageList& others) const {
    return empty() ? others : continuedBy(size(), others.toVector());
}

MessageList MessageList::removing(const MessageList& gone) const {
    std::unordered_set<const Message*> going;
    for (const auto& message : gone) going.insert(message.get());
    const auto goes = [&](const value_type& message) { return going.contains(message.get()); };
    const auto first = std::ranges::find_if(*this, goes);
    if (first == end()) return *this;
    // What stands before the first one that goes is kept by whole pieces.
    const auto kept = static_cast<std::size_t>(first - begin()) / kPieceSize * kPieceSize;
    std::vector<value_type> rest;
    std::ranges::remove_copy_if(begin() + static_cast<std::ptrdiff_t>(kept), end(), std::back_inserter(rest),
                                goes);
    return continuedBy(kept, std::move(rest));
}

std::vector<MessageList::value_type> MessageList::toVector() const {
    return {begin(), end()};
}

bool operator==(const MessageList& a, const MessageList& b) {
    return a._pieces == b._pieces || std::ranges::equal(a, b);
}

std::size_t MessageList::indexOf(const Message& message) const {
    const std::size_t hint = message.listHint();
    if (holds(message, hint)) return hint;
    auto found = findNear(message, hint);
    if (found == kNotFound) found = findByAddress(message);
    if (found != kNotFound) message.setListHint(found);
    return found;
}

std::size_t MessageList::findNear(const Message& message, std::size_t hint) const {
    for (std::size_t away = 1; away <= kNear; ++away) {
        if (holds(message, hint - away)) return hint - away;  // below 0 it wraps, and is nowhere
        if (holds(message, hint + away)) return hint + away;
    }
    return kNotFound;
}

std::size_t MessageList::findByAddress(const Message& message) const {
    if (empty()) return kNotFound;
    const auto addressAt = [this](std::uint32_t index) {
        return static_cast<const Message*>((*this)[index].get());
    };
    std::call_once(_pieces->placesMade, [&] {
        _pieces->places.resize(size());
        std::iota(_pieces->places.begin(), _pieces->places.end(), std::uint32_t{0});
        std::ranges::sort(_pieces->places, std::less<>(), addressAt);
    });
    const auto place = std::ranges::lower_bound(_pieces->places, &message, std::less<>(), addressAt);
    return place != _pieces->places.end() && addressAt(*place) == &message ? *place : kNotFound;
}

}  // namespace lorvale
