#pragma once
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/body/mime_body_part.h"
#include "lorvale/export.h"
#include "lorvale/message/body.h"
#include "lorvale/platform/mutex.h"

namespace lorvale {

class MessageHeaders;

/// A row of the map between MIME types and file names: type, subtype ("*" is any) and extensions without dots.
struct MimeFileType {
    std::string type, subtype;
    std::vector<std::string> extensions;
};

/// The body of a MIME message, and of a message that says nothing of its body.  Owns the tree of parts.
///
/// Any thread may ask for bytes and text and flush, as for every MessageBody: who works on the tree takes it,
/// and another thread then makes one of its own.
class LORVALE_EXPORT MimeBody : public MessageBody {
public:
    static float willingnessToDecode(MessageHeaders& headers);
    /// What "MIME-Version:" says of a message that this library writes.
    static std::string versionString();
    /// What stands for an attachment where text cannot hold it; "<attachment missing>" until it is set.
    static std::string missingAttachmentString();
    static void setMissingAttachmentString(std::string_view text);
    /// From the files named "MimeFileTypes" of the user, the site and the resources; read once.
    static const std::vector<MimeFileType>& mimeTypeMap();

    /// A boundary of the classic dialect, another one at each call.
    static std::string makeMimeBoundary();
    /// The default "MimeAlternatives": a classic letter with attributes or attachments brings plain text too.
    static bool autoAlternative();
    static void setAutoAlternative(bool on);

    MimeBody();
    ~MimeBody() override;

    /// The tree of parts, newly made, so that it is the caller's own; null when there are no bytes, or the
    /// outermost part cannot be read.
    std::shared_ptr<MimeBodyPart> bodyPart();

    // Of the alternative that is shown.
    std::optional<std::string> mimeType();
    std::optional<std::string> mimeSubtype();
    /// Whether the type is there and is not "text".
    bool hasAttachments();
    bool isHTML();
    /// Whether the text may have more than characters.
    bool isRich();

    std::size_t numberOfAlternatives();
    int preferredAlternative() const { return _preferredAlternative; }
    /// -1, as at first, is the library's choice; see MimeBodyPart::alternativeAtIndex().
    void setPreferredAlternative(int index);

    /// The text; one with attachments is also laid out as RTFD: in a new directory in this one, which the
    /// header "mime-reference" then names, or without a directory in attachmentDirectory(), where nothing is
    /// there yet. Null, logged, when that did not work.  Standard: lays nothing out, since attachments hold
    /// their bytes.
    std::shared_ptr<const AttributedText> decodeBodyIntoDirectory(std::optional<std::string> directory);
    /// Makes the directory for attachments; false when that did not work.
    bool makeUniqueTemporaryAttachmentInDirectory(std::optional<std::string_view> directory);

    /// Files that go with the text that was set, or will be, and have no place in it.
    void setFiles(MimeBodyPart::Files files);

    void flushEncodedBodyCache() override;
    void flushCachedData() override;
    void setDecodedBody(std::optional<AttributedText> text) override;
    std::string className() const override { return "MimeBody"; }

protected:
    std::shared_ptr<const AttributedText> decodeBody() override;
    /// Composes the text that was set, and tells the headers of the message what the bytes are.
    std::optional<Data> encodeBody() override;

private:
    class Tree;

    std::shared_ptr<MimeBodyPart> _createMainBodyPart();
    void dropTree();
    std::shared_ptr<const AttributedText> textOfAlternative();
    std::shared_ptr<const AttributedText> textInKnownDirectory();
    std::shared_ptr<const AttributedText> textInNewDirectory(const std::string& directory);
    std::optional<std::string> usualDirectory() const;
    std::optional<std::string> uniqueAttachment(std::optional<std::string_view> directory);

    Mutex _treeMutex;
    std::shared_ptr<MimeBodyPart> _mainBodyPart LORVALE_GUARDED_BY(_treeMutex);  // null: not made, or taken
    int _treeVersion LORVALE_GUARDED_BY(_treeMutex) = 0;  // a tree taken before a flush does not come back
    std::string _temporaryDirectory LORVALE_GUARDED_BY(_treeMutex);  // goes with this body; empty: none
    std::atomic<int> _preferredAlternative = -1;

    // Bytes and headers of a letter name the same boundary, so it is composed by one thread.  Taken before any
    // other lock, also while the headers are read.
    Mutex _composingMutex;
    MimeBodyPart::Files _files LORVALE_GUARDED_BY(_composingMutex);
};

}  // namespace lorvale
