#pragma once
#include <exception>
#include <string>

#include "lorvale/platform/exception.h"

namespace lorvale {

/// What an exception has to say for a log.
inline std::string reasonOf(const std::exception& exception) {
    const auto* const named = dynamic_cast<const NamedException*>(&exception);
    return named != nullptr ? named->reason() : exception.what();
}

}  // namespace lorvale
