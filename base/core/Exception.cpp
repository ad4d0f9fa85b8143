#include "lorvale/platform/exception.h"

namespace lorvale {

NamedException::NamedException(std::string_view name, std::string_view reason)
    : _name(name), _reason(reason), _what(_name + ": " + _reason) {}

// Out of line, so that the type information of each class stands in the library, once.
NamedException::~NamedException() = default;
GenericException::~GenericException() = default;
InternalInconsistencyException::~InternalInconsistencyException() = default;
InvalidArgumentException::~InvalidArgumentException() = default;
RangeException::~RangeException() = default;

}  // namespace lorvale
