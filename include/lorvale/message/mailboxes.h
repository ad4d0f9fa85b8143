#pragma once
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"

/// Address lists as RFC 5322, section 3.4, takes them apart: quoted strings, comments, groups, routes.  They
/// stand beside the operations of addresses.h, by which this system has always shown and compared addresses.

namespace lorvale {

struct Mailbox {
    std::string name;     ///< the display name, without its quotes; often empty
    std::string address;  ///< "local@domain" without comments, white space and route; empty in a list of names
    std::string comment;  ///< what stands in its parentheses, where older mail has the name: "jd@x (Jane)"
    std::string group;    ///< the name of the group that it is in; empty outside groups

    friend bool operator==(const Mailbox&, const Mailbox&) = default;
};

/// All mailboxes of a list that was decoded in the standard dialect, those of its groups among them; an empty
/// group gives none.  Never fails: what is no mailbox by the rules becomes the nearest thing that is.  Linear.
LORVALE_EXPORT std::vector<Mailbox> mailboxesInList(std::string_view text);

/// A mailbox, or several, as they stand in a list; mailboxesInList() gives them back, but for control
/// characters.  Neighbours of one group come out as that group.
LORVALE_EXPORT std::string mailboxText(const Mailbox& mailbox);
LORVALE_EXPORT std::string mailboxListText(std::span<const Mailbox> mailboxes);

}  // namespace lorvale
