#pragma once
#include <string_view>

namespace lorvale {

// What a directory mailbox is called, and what lies in it.
inline constexpr std::string_view kTarnExtension = "mbox";
inline constexpr std::string_view kMboxName = "mbox";
inline constexpr std::string_view kTableName = "table_of_contents";
inline constexpr std::string_view kLockName = ".lock";
inline constexpr std::string_view kIncomingMailName = "Incoming_Mail";
inline constexpr std::string_view kIncomingTableName = "Incoming_Table_of_Contents";
inline constexpr std::string_view kSpoolCopyName = "CopyOfSpoolFile";

/// Posted when a background append has put its mail down; the object is a string, the path of the store.
inline constexpr std::string_view kThreadFetchFinished = "_ThreadFetchFinished";

}  // namespace lorvale
