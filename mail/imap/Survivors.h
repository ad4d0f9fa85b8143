#pragma once
#include <bit>
#include <cstddef>
#include <vector>

namespace lorvale {

/// The places of a list, of which some are taken out one after the other, each by its number among those that
/// are left at that time.  A tree of sums, since to move a list of n up n times takes minutes where n is large.
class Survivors {
public:
    explicit Survivors(std::size_t count) : _count(count), _isLeft(count, true), _sums(count + 1) {
        for (std::size_t i = 1; i <= count; ++i) _sums[i] = i & (~i + 1);  // all that the node i is about
    }
    std::size_t count() const { return _count; }
    bool has(std::size_t place) const { return _isLeft[place]; }
    /// Gives the place, from 0, of what has the number, from 1 to count().
    std::size_t take(std::size_t number) {
        std::size_t place = 0;
        for (auto step = std::bit_floor(_isLeft.size()); step > 0; step /= 2) {
            if (place + step > _isLeft.size() || _sums[place + step] >= number) continue;
            place += step;
            number -= _sums[place];
        }
        for (auto node = place + 1; node < _sums.size(); node += node & (~node + 1)) --_sums[node];
        _isLeft[place] = false;
        --_count;
        return place;
    }

private:
    std::size_t _count;
    std::vector<bool> _isLeft;
    std::vector<std::size_t> _sums;  // node i: how many are left of the places below i that it is about
};

}  // namespace lorvale
