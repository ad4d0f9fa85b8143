#pragma once
#include <exception>
#include <string>
#include <string_view>

#include "lorvale/export.h"

namespace lorvale {

inline constexpr std::string_view kGenericException = "GenericException";
inline constexpr std::string_view kInternalInconsistencyException = "InternalInconsistencyException";
inline constexpr std::string_view kInvalidArgumentException = "InvalidArgumentException";
inline constexpr std::string_view kRangeException = "RangeException";

/// The failure of the mail half: a name that a handler can know it by, and a reason for people.
/// what() is "name: reason".
class LORVALE_EXPORT NamedException : public std::exception {
public:
    NamedException(std::string_view name, std::string_view reason);
    ~NamedException() override;
    const char* what() const noexcept override { return _what.c_str(); }
    const std::string& name() const noexcept { return _name; }
    const std::string& reason() const noexcept { return _reason; }

private:
    std::string _name, _reason, _what;
};

/// The subclasses that the base layer itself throws; a handler may also go by name().
class LORVALE_EXPORT GenericException : public NamedException {
public:
    explicit GenericException(std::string_view reason) : NamedException(kGenericException, reason) {}
    ~GenericException() override;
};
class LORVALE_EXPORT InternalInconsistencyException : public NamedException {
public:
    explicit InternalInconsistencyException(std::string_view reason)
        : NamedException(kInternalInconsistencyException, reason) {}
    ~InternalInconsistencyException() override;
};
class LORVALE_EXPORT InvalidArgumentException : public NamedException {
public:
    explicit InvalidArgumentException(std::string_view reason)
        : NamedException(kInvalidArgumentException, reason) {}
    ~InvalidArgumentException() override;
};
class LORVALE_EXPORT RangeException : public NamedException {
public:
    explicit RangeException(std::string_view reason) : NamedException(kRangeException, reason) {}
    ~RangeException() override;
};

}  // namespace lorvale
