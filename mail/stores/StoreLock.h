#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace lorvale {

/// The lock files of mailboxes.  One line, "host,user,process name (Lorvale version 106),process number\n"; a
/// lock is taken by giving a finished file of that kind the lock's name with link(), which succeeds for one
/// process only, on network file systems too.

struct LockOwner {
    std::string host, user;  // as they stand in the file, so perhaps any bytes
    int process = 0;         // 0 when it cannot be read
};

/// What a lock file says.  Any bytes will do: what is missing stays empty.
LockOwner parseLockFile(std::string_view bytes);
/// What this process writes.  Commas and line ends in the names become blanks, so that the fields stay apart.
std::string lockFileLine();

/// The files in which locks were being made, by paths.  A process that was killed leaves one, a living one has
/// it for a moment.
std::vector<std::string> unfinishedLockFiles(const std::string& lockPath);

/// True when the lock now belongs to this process.  What killed processes left unfinished is then cleared away.
bool createLockFile(const std::string& lockPath);
/// Whether to go on although there is a lock file: yes when its process is dead (the file is then removed) or
/// the user says so.
bool shouldOpenDespiteLockFile(const std::string& lockPath);

}  // namespace lorvale
