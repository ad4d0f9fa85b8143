#pragma once
#include <string>
#include <vector>

#include "mail/model/HeaderDecoding.h"

namespace lorvale::testing {

/// The header block of every message under the folder of real mail, with line ends as they are; empty where
/// that folder is absent.  The large mailbox, which is packed, is left out where nothing unpacks it.
std::vector<std::string> realHeaderBlocks();

}  // namespace lorvale::testing
