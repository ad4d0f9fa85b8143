#pragma once
#include <cstddef>
#include <memory>
#include <string_view>

#include "base/files/FileSystem.h"

namespace lorvale {

class Message;

/// A text file in which every fetched message leaves an entry: "fetch_log.txt", or with the user default
/// "DebugFetch" "debug_fetch_log.txt", in "tmp/fetch_backup" of the home directory.  Kept only with the user
/// default "LogFetchData".  A failure to write it stands in nobody's way.
class FetchLog {
public:
    /// Begins with a line on how many messages go to which mailbox.
    FetchLog(std::size_t messages, std::string_view mailbox);
    ~FetchLog();
    FetchLog(const FetchLog&) = delete;
    FetchLog& operator=(const FetchLog&) = delete;

    void add(Message& message, bool succeeded);

private:
    void write(std::string_view text);
    std::unique_ptr<WritableFile> _file;  // null: nothing is logged
};

}  // namespace lorvale
