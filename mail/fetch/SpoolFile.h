#pragma once
#include <memory>
#include <string>
#include <string_view>

#include "base/files/FileSystem.h"
#include "lorvale/fetch/pop3_connection.h"

namespace lorvale {

/// The file into which mail from a server is written.  Entries are collected and go to it in blocks, each of
/// which is on disk before the next is begun: so a loss of power can tear the last block and nothing before it.
class SpoolFile : public POP3Spool {
public:
    /// Opens the file at its end; it is made if missing.  Throws POP3Exception.
    explicit SpoolFile(std::string path);
    ~SpoolFile() override;
    /// Throws POP3Exception when a block cannot be written.  The file is then as it was before that block.
    void write(std::string_view entry) override;
    /// Returns when everything is on disk, the name of the file as well.  Throws like write().
    void close();

    /// Makes good what a crash can have left of the last block: bytes that never came are cut off, and a line
    /// without an end is ended, so that neither belongs to a message.  What is no mail at all is put aside.
    /// Does nothing to a file in order, and for a missing one.
    static FileStatus repair(const std::string& path);

private:
    void flush();

    const std::string _path;
    std::unique_ptr<WritableFile> _file;
    std::string _waiting;
};

}  // namespace lorvale
