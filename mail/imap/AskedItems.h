#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/imap/value.h"

namespace lorvale {

/// The items that a FETCH command names, to tell its answers from what a server says of messages unasked.
class AskedItems {
public:
    /// "BODY.PEEK[HEADER]", "(UID FLAGS)".
    explicit AskedItems(std::string_view items);
    /// Whether a list of names and values has one of them.
    bool areIn(std::span<const IMAPValue> answer) const;

private:
    std::vector<std::string> _stems;  // without ".PEEK" and what stands in brackets
};

}  // namespace lorvale
