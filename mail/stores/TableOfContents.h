#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/files/FileSystem.h"
#include "lorvale/message/list.h"
#include "mail/stores/MessagesByID.h"
#include "mail/stores/TOCFormat.h"
#include "mail/stores/TOCMessage.h"

namespace lorvale {

class BerkeleyMbox;

/// The list of a mailbox's messages as it stands in a file, so that the mailbox opens without reading its mail:
/// where each message lies in the file "mbox" beside it, its status, its three cached headers.  Status stands
/// nowhere else.  mail/stores/TOCFormat.h tells the bytes.
///
/// The list that it hands out is a value; the messages are the same ones from reading to writing.  Belongs to
/// the thread that changes its store.
class TableOfContents {
public:
    /// A new table without messages; no file is touched.
    explicit TableOfContents(std::string path) : _path(std::move(path)) {}
    /// The table in a file.  Null when there is none or it is empty, and after two log lines when it is
    /// damaged.
    static std::unique_ptr<TableOfContents> initWithPath(const std::string& path);

    /// The same of bytes in memory.  Throws as decodeTable() does.
    static std::unique_ptr<TableOfContents> ofBytes(std::string path, Data bytes);

    /// Whether the file "mbox" is as it was when the table was written, as far as its time tells: to the
    /// second, and within that by whether the table was written later.  Only a file named "table_of_contents"
    /// is ever stale; a stale one still gives its records.
    bool isValid() const { return _isValid; }
    const std::string& path() const { return _path; }
    void setPath(std::string path) { _path = std::move(path); }
    std::string storePath() const { return folderOf(_path); }
    std::uint32_t version() const { return _header.version; }

    const MessageList& messages() const { return _messages; }
    std::size_t count() const { return _messages.size(); }
    /// At the end.  All are TOCMessages with a listing.
    void addMessages(const MessageList& messages);
    void addMessage(const std::shared_ptr<TOCMessage>& message) { addMessages({message}); }
    /// A listing of any message; null when its headers cannot be had.
    std::shared_ptr<TOCMessage> addMessage(Message& message, MboxRange withRange);
    /// The messages behind each one move down by its length, as they do in the file.  What is not listed
    /// changes nothing.
    void removeMessages(const MessageList& messages);
    /// All of them anew.
    void setMessages(MessageList messages);
    /// Of several with the same identifier the last one; null when there is none.
    std::shared_ptr<TOCMessage> messageForMessageID(std::string_view messageID);
    /// The same for lists of these messages.  Any thread.
    MessagesByID& messagesByID() { return _messagesByID; }

    /// A table made anew.
    struct Rebuilt {
        MessageList messages;
        std::vector<MboxRange> places;  // of these
    };
    /// The messages that a scan of the file has found, each with the old record of the same identity if there
    /// is one, so that its status stays; else with a new one, which counts as read.  The store is over the very
    /// file.  Nullopt when another program has taken the bytes of a message away meanwhile.  The table and the
    /// places in its records change with adopt().
    std::optional<Rebuilt> rebuiltFromStore(BerkeleyMbox& store) const;
    void adopt(Rebuilt rebuilt);

    /// The time that goes into the file: that of a file "mbox" which is as its owner knows it.
    static std::uint32_t stampOf(const FileAttributes& mbox);
    /// The whole file, with that stamp.
    Data cachedData(std::uint32_t stamp) const;
    /// Writes the table to a new file and renames that over the old one.  `mbox` is the mailbox as the owner
    /// knows it: if another program has changed it since, the table is stamped so that it is stale.  False,
    /// after a log line, when it cannot be written.
    bool flushToFile(const FileAttributes& mbox);
    /// The same for a table that is never compared with anything.
    bool flushToFile();
    /// The same, but stale whatever becomes of the mailbox.  Whoever is about to move messages in it calls this
    /// first: a crash behind that change may leave a file of the same length in the same second, in which each
    /// record would show its neighbour's message.
    bool flushAsStale(const FileAttributes& mbox);

    std::string description() const;

private:
    class OldRecords;

    void loadCacheFromFile(Data bytes);
    bool isOfFile() const;
    bool write(std::uint32_t stamp);

    std::string _path;
    TOCHeader _header;  // its count and stamp are those of the file that was read
    bool _isValid = true;
    MessageList _messages;
    MessagesByID _messagesByID;
};

}  // namespace lorvale
