#pragma once
#include <string_view>

namespace lorvale {

// The attributes of a store, a property list inside the store's path: its file name and its keys.
inline constexpr std::string_view MessageStoreUserInfo = "Info.plist";
inline constexpr std::string_view MessageStoreSortOrder = "SortOrder";
inline constexpr std::string_view MessageStoreUnreadCount = "UnreadCount";  ///< counts and sizes: decimal text
inline constexpr std::string_view MessageStoreDeletedCount = "DeletedCount";
inline constexpr std::string_view MessageStoreTotalCount = "TotalCount";
inline constexpr std::string_view MessageStoreDeletedSize = "DeletedSize";
inline constexpr std::string_view MessageStoreTotalSize = "TotalSize";
inline constexpr std::string_view MessageStoreIsDirty =
    "IsDirty";  ///< "Yes" when changed since a reader looked

// Sort orders, the values of "SortOrder".
inline constexpr std::string_view MessageStoreSortByNumber = "number";  ///< as in the mailbox
inline constexpr std::string_view MessageStoreSortByTitle = "subject";
inline constexpr std::string_view MessageStoreSortByAuthor = "from";
inline constexpr std::string_view MessageStoreSortBySize = "size";
inline constexpr std::string_view MessageStoreSortByCreationDate = "received-date";

// Notifications.  The object is the store, but for the first, whose object is a MessageList.
inline constexpr std::string_view MessageStoreMessageFlagsChanged = "MessageStoreMessageFlagsChanged";
inline constexpr std::string_view MessageStoreStructureChanged = "MessageStoreStructureChanged";
inline constexpr std::string_view MessageStoreAppendDone = "MessageStoreAppendDone";
/// The user info has one key, kMessagesKey, a MessageList.
inline constexpr std::string_view MessageStoreMessagesWillBeCompacted = "MessageStoreMessagesWillBeCompacted";
inline constexpr std::string_view MessageStoreAttributesChanged = "MessageStoreAttributesChanged";
inline constexpr std::string_view MessageStoreNewMail = "MessageStoreNewMail";
inline constexpr std::string_view kMessagesKey = "messages";

}  // namespace lorvale
