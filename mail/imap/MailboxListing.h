#pragma once
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "lorvale/mime/dialect.h"
#include "lorvale/values/data.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

/// One line of a LIST answer, without the word.
struct ListedMailbox {
    std::vector<std::string> attributes;   ///< in lower case
    std::optional<std::string> separator;  ///< nullopt for NIL
    std::string name;                      ///< UTF-8
};
/// `utf8`: names come as they are, and not in UTF-7.
std::optional<ListedMailbox> parseListLine(const Data& line, MailDialect dialect, bool utf8 = false);

/// Puts a mailbox into the tree of dictionaries.  What is deeper than some hundred levels is left out.
void addToTree(PropertyList& tree, const ListedMailbox& mailbox, std::string_view separator);

}  // namespace lorvale
