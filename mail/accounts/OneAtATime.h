#pragma once
#include <atomic>

namespace lorvale {

/// Lets one caller of the process into a place, and tells every other one that it is taken, the thread that is
/// in there included: nobody waits.
class OneAtATime {
public:
    using Place = std::atomic<bool>;

    explicit OneAtATime(Place& place) : _place(place), _isIn(!place.exchange(true)) {}
    ~OneAtATime() {
        if (_isIn) _place = false;
    }
    OneAtATime(const OneAtATime&) = delete;
    OneAtATime& operator=(const OneAtATime&) = delete;

    explicit operator bool() const { return _isIn; }

private:
    Place& _place;
    const bool _isIn;
};

}  // namespace lorvale
