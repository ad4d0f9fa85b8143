#pragma once
#include <unistd.h>

#include <utility>

namespace lorvale {

/// Owns one file descriptor.  One thread at a time.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : _descriptor(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : _descriptor(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const { return _descriptor; }
    explicit operator bool() const { return _descriptor >= 0; }
    int release() { return std::exchange(_descriptor, -1); }
    void reset(int descriptor = -1) {
        if (const int old = std::exchange(_descriptor, descriptor); old >= 0) ::close(old);
    }

private:
    int _descriptor = -1;
};

}  // namespace lorvale
