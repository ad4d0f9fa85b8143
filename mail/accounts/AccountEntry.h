#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/values/property_list.h"

namespace lorvale {

/// One entry of the registry of accounts, which is an array of dictionaries: the settings of an account, its
/// path and the name of its class.  An older form, still read, has two elements for an account: the name of the
/// class, then the path or a dictionary with the path.
struct AccountEntry {
    std::string type, path;  ///< both empty for an element that is no account
    PropertyList element;    ///< as it is written: the dictionary, or whatever stood there and is kept

    bool isAccount() const { return !type.empty(); }
    bool isOf(std::string_view otherType, std::string_view otherPath) const {
        return isAccount() && type == otherType && path == otherPath;
    }
    /// What setAccountInfo() gets: the dictionary without path and type.
    PropertyList info() const;
};

AccountEntry accountEntry(std::string_view type, std::string_view path, PropertyList info);

/// The entries of an array, in its order.  Every element of it is in one of them.  None for what is no array.
std::vector<AccountEntry> readAccountEntries(const PropertyList& registry);
PropertyList toPropertyList(const std::vector<AccountEntry>& entries);

}  // namespace lorvale
