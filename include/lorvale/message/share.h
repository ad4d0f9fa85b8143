#pragma once
#include <memory>
#include <utility>

namespace lorvale {

/// A share of a value that never changes: good for as long as it is held, on any thread, whatever becomes of
/// the object that gave it.  Never null.  A walk over one that was just handed out is safe:
/// `for (const auto& [name, values] : headers->allHeaders())`.
template <class T>
class Share {
public:
    using value_type = typename T::value_type;
    using const_iterator = typename T::const_iterator;

    Share() : Share(nullptr) {}
    /// Null stands for an empty value.
    explicit Share(std::shared_ptr<const T> value) : _value(std::move(value)) {
        static const auto& none = *new auto(std::make_shared<const T>());
        if (!_value) _value = none;
    }
    // What is moved from goes on sharing.
    Share(const Share&) = default;
    Share& operator=(const Share&) = default;

    const T& operator*() const& { return *_value; }
    const T& operator*() const&& = delete;  // the value may go with the share: give that a name
    const T* operator->() const { return _value.get(); }
    auto begin() const { return _value->begin(); }
    auto end() const { return _value->end(); }
    auto size() const { return _value->size(); }
    bool empty() const { return _value->empty(); }

    friend bool operator==(const Share& a, const Share& b) { return *a._value == *b._value; }
    friend bool operator==(const Share& a, const T& b) { return *a._value == b; }

private:
    std::shared_ptr<const T> _value;
};

}  // namespace lorvale
