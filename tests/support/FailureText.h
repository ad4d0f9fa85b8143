#pragma once
#include <cstdint>
#include <string>

#include "lorvale/platform/exception.h"
#include "lorvale/toolkit/storage/exception.h"

namespace brindle::testing {

/// "CODE message" of the IAException that the call raises, or nothing.
template <class Call>
std::string failureOf(Call&& call) {
    try {
        call();
        return "";
    } catch (const IAException& failure) {
        std::string text;
        for (int shift = 24; shift >= 0; shift -= 8)
            text += static_cast<char>(static_cast<std::uint32_t>(failure.GetCode()) >> shift);
        return text + " " + failure.What();
    }
}

}  // namespace brindle::testing

namespace lorvale::testing {

/// "CLASS: reason" of the NamedException that the call raises, or nothing.
template <class Call>
std::string reasonOf(Call&& call) {
    try {
        call();
        return "";
    } catch (const NamedException& exception) {
        return exception.what();
    }
}

}  // namespace lorvale::testing
