#pragma once
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "base/files/FileSystem.h"

namespace lorvale {

/// What of a queue the server has taken while it is sent, so that a program that is killed sends nothing twice:
/// a file with a line "PLACE SIZE CHECKSUM" for each message.  Nobody waits for the disk, so a power loss can
/// take notes away.  Those of an earlier queue fit nothing in this one.
class SentNotes {
public:
    /// With what an earlier program has noted of this queue.
    SentNotes(std::string path, const std::vector<Data>& queue);

    bool has(std::size_t place) const { return _has[place]; }
    void add(std::size_t place);
    /// Once the queue is without them.
    void clear();

private:
    const std::string _path;
    std::vector<std::string> _lines;  // one for each message of the queue
    std::vector<bool> _has;
    bool _isEmpty = true;  // the file
    std::unique_ptr<WritableFile> _file;
};

}  // namespace lorvale
