#pragma once
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/values/attributed_text.h"
#include "lorvale/values/data.h"
#include "lorvale/values/encoding.h"

namespace lorvale {

class MessageHeaders;

/// What "Content-Disposition:" says of a part (RFC 2183).  Only the standard dialect looks at it.
enum class ContentDisposition : std::uint8_t {
    none,        ///< no such header
    inlined,     ///< to be shown where it stands
    attachment,  ///< to be kept apart; so is a disposition that is not known
};

/// One node of the tree of parts that a MIME message is (RFC 2045, 2046): its header block, its body behind the
/// transfer encoding, its children.  The bytes it is made of are shared and not copied, and nothing is decoded
/// before it is asked for.  Held by a shared_ptr; the tree belongs to one thread at a time.
///
/// A part reads in the dialect in which it was made, and so do its children; docs/dialects.md tells the
/// differences.  In both, no input makes it read out of bounds or work longer than its size asks: children
/// below kDeepestLevel, and children beyond the first kMostChildren of one part, stay undivided bytes.
///
/// Names and values are UTF-8.  Types, subtypes, transfer encodings and charsets compare by isKeyEqual().
///
/// A part is also what a letter is composed of: docs/composing.md tells the way from a text to its bytes.  A
/// composed part writes in its dialect.
class LORVALE_EXPORT MimeBodyPart : public std::enable_shared_from_this<MimeBodyPart> {
public:
    using Parts = std::vector<std::shared_ptr<MimeBodyPart>>;
    using Parameters = std::map<std::string, std::string, std::less<>>;  ///< by lower-case name
    using Files = std::vector<std::shared_ptr<const FileWrapper>>;

    static constexpr std::size_t kDeepestLevel = 100;
    static constexpr std::size_t kMostChildren = 100'000;

    /// A part from its bytes: header block, empty line, body.  Nullopt for the bytes gives an empty part.
    /// Classic: null, with a log line, when the body cannot be decoded (uuencode without its first line);
    /// throws RangeException where the content type ends in white space.
    static std::shared_ptr<MimeBodyPart> bodyPartWithData(const std::optional<Data>& data,
                                                          MailDialect dialect = mailDialect());
    /// Null also when the file cannot be read.
    static std::shared_ptr<MimeBodyPart> bodyPartWithContentsOfFile(std::string_view path,
                                                                    MailDialect dialect = mailDialect());

    explicit MimeBodyPart(MailDialect dialect = mailDialect());
    MimeBodyPart(const MimeBodyPart&) = delete;
    MimeBodyPart& operator=(const MimeBodyPart&) = delete;
    ~MimeBodyPart();

    MailDialect dialect() const { return _dialect; }

    /// In lower case.  Classic: nullopt for a part that does not say.  Standard: never nullopt; what a part
    /// without a type is, "text" and "plain" as a rule, stands in RFC 2045, 5.2, and RFC 2046, 5.1.5.
    const std::optional<std::string>& mimeType() const { return _mimeType; }
    const std::optional<std::string>& mimeSubtype() const { return _mimeSubtype; }
    void setMimeType(std::string_view type, std::string_view andSubtype);
    bool isMultipart() const;
    bool isText() const;

    /// A header of the part; keys in any case of letters.  Of several with one name, classic gives the last
    /// and standard the first.
    std::optional<std::string> mimeHeaderForKey(std::string_view key) const;
    void setMimeHeader(std::string_view value, std::string_view forKey);
    /// A parameter of "Content-Type:"; keys in any case of letters, values keep theirs.
    std::optional<std::string> mimeParameterForKey(std::string_view key) const;
    void setMimeParameter(std::string_view value, std::string_view forKey);

    /// Nullopt: none was given.
    const std::optional<std::string>& mimeEncoding() const { return _mimeEncoding; }
    /// For writing: what bodyData() tells does not change.  An empty name leaves the choice to the writer.
    void setMimeEncoding(std::string_view encoding);
    ContentDisposition disposition() const { return _disposition; }
    /// Standard, for writing: with the name of a file, which may hold any text; empty for none.
    void setDisposition(ContentDisposition disposition, std::string_view filename = {});
    /// The file name that the part gives itself, as it stands: it may hold anything, slashes too.
    std::optional<std::string> givenFilename() const;
    /// The same, made fit for being the name of a file in a directory; never empty.
    std::string filename() const;
    /// Whether a reader sees the part as a file beside the text and not as text or structure.
    bool isAttachment() const;

    /// The body behind its transfer encoding; nullopt when it was never set or has been flushed.
    std::optional<Data> bodyData() const;
    void setBodyData(std::optional<Data> data);
    /// The body as text, in the simplest charset that holds it: bestMIMEStringEncoding() in the classic
    /// dialect, UTF-8 in the standard one.  The type stays as it is.
    void setBodyString(std::string_view text);
    /// The body as it stands in the message.
    const std::optional<Data>& encodedBodyData() const { return _encodedData; }
    /// The body as text.  Bytes that are not valid in the encoding are read as well as they can be.
    /// Standard: with "\n" at the ends of lines.
    const std::string& body();
    /// Classic: the encoding in which body() reads.  Code page 1252 stands in for ISO Latin 1 where the body
    /// holds bytes that only that page prints.
    StringEncoding bodyEncoding();
    void setBodyEncoding(StringEncoding encoding) { _bodyEncoding = encoding; }

    /// The children of a multipart part; in the standard dialect also the one message in a "message/rfc822".
    /// Null for other parts, and where the body cannot be divided.  Made at the first call.
    const Parts* bodyParts();
    /// In the place of the body.  The caller sees to the type.
    void setBodyParts(Parts parts);
    /// Divides the body anew, whatever the type.
    std::optional<Parts> decodeMultipartBody() const;

    /// The children of a "multipart/alternative", 0 for any other part.
    std::size_t numberOfAlternatives();
    /// The alternative to show; -1 is the last one in the classic dialect, the best that can be shown in the
    /// standard one; so is an index that is not there.  A part without alternatives answers itself.
    std::shared_ptr<MimeBodyPart> alternativeAtIndex(int index);

    /// The part and all below it as text with attachments, which hold their bytes in memory.  The directory is
    /// where bodyFileIn() then places files.  Never fails: what cannot be converted is shown as plain text.
    AttributedText decodeBodyPartInDirectory(std::optional<std::string_view> directory);

    /// The path chosen for the file of this part.
    const std::optional<std::string>& bodyFile() const { return _bodyFile; }
    /// Chooses a free path in the directory, else in the one that was set, else only a name.  The name comes
    /// from the message, so it never leads out of the directory.
    std::string bodyFileIn(std::optional<std::string_view> directory);
    void setAttachmentDirectory(std::optional<std::string_view> directory);
    /// A file of the body, a directory of a multipart one; named as chosen by bodyFileIn().
    std::shared_ptr<FileWrapper> fileWrapperForBody();
    /// Writes the body to a path, or without one to bodyFileIn(): bytes, text, or a directory with a file for
    /// each child.  Obeys the parameter "x-unix-mode".  False, logged, when something could not be written.
    [[nodiscard]] bool saveBodyToFile(std::optional<std::string_view> path = std::nullopt);

    /// The part, or tree of parts, for a text with attachments.  `files` go with it without a place in the
    /// text.
    ///
    /// Classic: "text/plain" for ASCII without attributes; else "text/enriched" and attachments in turns, the
    /// files behind them, and with MimeBody::autoAlternative() plain text beside all of it.  What an attachment
    /// is called must be its preferred file name, or it is left out, after a log line.
    ///
    /// Standard: the whole text as one "text/plain" of flowed lines in UTF-8; one with attributes also as HTML.
    /// Attachments stand behind the text.
    ///
    /// Throws InvalidArgumentException for directories that lie deeper in each other than kDeepestFolder, since
    /// no reader would find what is in them.
    static std::shared_ptr<MimeBodyPart> bodyPartFromAttributedString(const AttributedText& text,
                                                                      MailDialect dialect = mailDialect());
    static std::shared_ptr<MimeBodyPart> bodyPartFromAttributedString(const AttributedText& text,
                                                                      const Files& files,
                                                                      MailDialect dialect = mailDialect());
    /// The part for a file; its name is the preferred one unless another is given.  Throws as above.
    /// Standard: a directory becomes an archive, "name.zip".
    static std::shared_ptr<MimeBodyPart> bodyPartWithFileWrapper(
        const FileWrapper& file, std::optional<std::string_view> filename = std::nullopt,
        MailDialect dialect = mailDialect());
    static constexpr std::size_t kDeepestFolder = 90;

    /// The type for the extension of a path, by MimeBody::mimeTypeMap(); "application/octet-stream" without
    /// one.  Letters count as they stand in the classic dialect, in any case in the standard one.
    void setMimeTypeFromFile(std::string_view path);
    /// Whether the text of the part may have more than characters.
    bool isRichBody() const;

    /// The headers that tell what the part is, with those that were set, into the headers of a message: charset
    /// and transfer encoding are chosen now where they were not said.
    void appendHeadersToMessageHeaders(MessageHeaders& headers, bool withMimeVersion = true);
    /// The header block with its empty line.
    void appendHeadersToData(ByteBuffer& data, bool withMimeVersion = true);
    /// The body in its transfer encoding, or in another one.
    void appendBodyToData(ByteBuffer& data);
    void appendBodyToData(ByteBuffer& data, std::string_view usingMimeEncoding);
    /// Header block and body.
    void appendToData(ByteBuffer& data, bool withMimeVersion = true);

    /// Drops the bytes and the text of this part and those below it.  The types stay, and so do the children.
    void flushCachedData();
    /// For logs.
    std::string description();

private:
    friend class ClassicBodyText;
    friend class ClassicComposer;
    friend class StandardBodyText;

    static std::shared_ptr<MimeBodyPart> make(const std::optional<Data>& data, MailDialect dialect,
                                              std::size_t level, bool isInDigest);
    bool initWithData(const Data& data, bool isInDigest);
    bool initClassically(const Data& data);
    bool initByStandard(const Data& data, bool isInDigest);
    bool readBodyPartFromData(Data data);
    const std::map<std::string, std::string, std::less<>>& loadedHeaders() const;
    std::string textOfBody();
    std::string textOfBytes(std::string_view bytes) const;
    void addMimeHeadersWithMimeVersion(bool withMimeVersion);
    void chooseClassically();
    void chooseByStandard();
    std::string contentTypeValue() const;
    std::string dispositionValue() const;
    void appendChildren(ByteBuffer& data, std::string_view boundary);
    void forgetBodyFile();
    bool saveChildren(const std::string& path);
    bool writeBody(const std::string& path);
    void applyUnixMode(const std::string& path) const;

    const MailDialect _dialect;
    ContentDisposition _disposition = ContentDisposition::none;
    bool _bodyFileOwner = false;
    bool _hasBodyParts = false;   // whether _bodyParts was looked for
    bool _choseEncoding = false;  // by ourselves, for the body that was there
    bool _choseCharset = false;
    std::size_t _level = 0;
    std::optional<std::string> _mimeEncoding, _mimeType, _mimeSubtype;
    StringEncoding _bodyEncoding = StringEncoding::unknown;
    std::optional<Parts> _bodyParts;
    mutable bool _hasMimeHeaders = false;  // whether _mimeHeaders holds those of the header block
    mutable std::map<std::string, std::string, std::less<>> _mimeHeaders;
    Parameters _mimeParams, _dispositionParams;
    Data _headerData;
    std::optional<Data> _encodedData;       // the body as it stands
    mutable std::optional<Data> _bodyData;  // behind its transfer encoding; made when it is asked for
    std::optional<std::string> _bodyString;
    std::optional<std::string> _bodyFile;
    std::optional<std::string> _attachDir;
};

}  // namespace lorvale
