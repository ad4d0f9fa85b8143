#pragma once
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/message/body.h"

namespace lorvale {

class MessageHeaders;

/// The body of a message in the older rich format: an RTFD document, packed by tar and compress and sent as one
/// uuencoded file, or kept in a directory beside the mailbox, by the name in the header "tarn-reference".
///
/// Other programs do the packing, on bytes that a stranger wrote: they get nothing of ours but these bytes, and
/// a minute; what unfolds to more than 256 MB is refused, and so is an archive with anything in it but plain
/// files and directories below its own.
class LORVALE_EXPORT TarnMailBody : public MessageBody {
public:
    /// 1 with a header "tarn-attachment" or "tarn-reference", else 0.
    static float willingnessToDecode(MessageHeaders& headers);

    // The paths of the programs: at first "/usr/bin/gnutar", "/usr/bin/compress" and "/bin/sh".  Any thread.
    static std::string tarCommand();
    static void setTarCommand(std::string_view path);
    static std::string compressCommand();
    static void setCompressCommand(std::string_view path);
    static std::string shellCommand();
    static void setShellCommand(std::string_view path);

    ~TarnMailBody() override;

    /// Packs a directory, and unpacks into one.  False, after a log line, where that fails.
    static bool enztar(const std::string& directory, ByteBuffer& into);
    static bool deztar(const Data& packed, const std::string& into);

    /// The last component of attachmentDirectory(); nullopt without one.
    std::optional<std::string> attachmentName() const;
    /// A new attachment directory, named after the subject; without a directory to make it in, one that goes
    /// with this object.  False, after a log line, when it cannot be made.
    bool makeUniqueTemporaryAttachmentInDirectory(std::optional<std::string_view> directory);
    /// The name under which the attachment is sent, and what is packed is its directory: the text that was set
    /// counts for a body without one.  From the header "tarn-attachment", which is made where it
    /// is missing.  Throws a NamedException "TarnMailBody" when the text cannot be written to disk.
    std::string prepareAttachmentForUuencoding();

    /// Bytes of the files beside the mailbox that the message refers to; 0 when the mailbox is not there.
    std::uint64_t attachmentSize() const;

    /// A single newline for a message whose content is kept beside its mailbox.
    std::optional<Data> encodedBody() override;
    /// Lays the document out in a new directory below this one and reads it; without a directory, reads what
    /// is laid out already.  Null, after a log line, when there is nothing to lay out; text that says so when
    /// the document is missing, and nothing is left behind then.
    std::shared_ptr<const AttributedText> decodeBodyIntoDirectory(std::optional<std::string_view> directory);
    std::string className() const override { return "TarnMailBody"; }

protected:
    std::optional<Data> encodeBody() override;
    std::shared_ptr<const AttributedText> decodeBody() override;

private:
    std::optional<std::string> referenceName() const;
    std::string mailboxDirectory() const;
    std::string directoryToUnpackIn() const;
    bool layOut(std::string_view directory);
    void takeBack();
    bool unpackInto(const std::string& path);
    void writeTextInto(const std::string& path, const AttributedText& text) const;
    void dropTemporaryDirectory();

    // Ours to remove; guarded by what guards the directory, since only who makes one sets it.
    std::atomic<bool> _isTemporary = false;
};

}  // namespace lorvale
