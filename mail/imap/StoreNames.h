#pragma once
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string_view>

/// What a mailbox on a server keeps in its directory, and how patient it is.

namespace lorvale {

inline constexpr std::string_view kArchiveName = "CachedData";
inline constexpr std::string_view kMirrorName =
    "CachedMessages";  ///< a folder: one file a message, named by its UID
inline constexpr std::string_view kQueueName = "DataToBeAppended";
inline constexpr std::string_view kSendingName =
    "DataToBeAppended.lock";  ///< locked by who is just sending the queue; holds what of it has gone up
inline constexpr std::string_view kIndexLockName = "mbox.index.lock";  ///< empty; locked by who keeps the index
inline constexpr mode_t kMirrorFolderMode = 0700;
inline constexpr mode_t kMirrorFileMode = 0600;

/// A server that tells of more is not believed: no mailbox has them, and each would cost memory here.
inline constexpr std::size_t kMostMessages = 10'000'000;

/// How often a list is compared with the server's at a stretch.
inline constexpr int kMostRounds = 20;

/// How long a change of the queue waits for others that change it just now, in other processes as well.
inline constexpr std::chrono::seconds kPatienceForQueue{10};

/// How long a store that closes waits for what its thread has under way.
inline constexpr std::chrono::seconds kPatienceAtClosing{2};

}  // namespace lorvale
