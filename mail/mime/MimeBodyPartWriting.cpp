#include <algorithm>
#include <array>

#include "base/files/PathUtils.h"
#include "base/text/Ascii.h"
#include "base/text/StringUtils.h"
#include "lorvale/body/mime_body.h"
#include "lorvale/body/mime_body_part.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/mime/ClassicComposer.h"
#include "mail/mime/ComposedBoundary.h"
#include "mail/mime/StandardComposer.h"
#include "mail/mime/TransferChoice.h"
#include "mail/mime/TransferDecoding.h"
#include "mail/model/HeaderEncoding.h"

namespace lorvale {

namespace {

constexpr std::string_view kTransferEncoding = "content-transfer-encoding";
constexpr std::string_view kDisposition = "content-disposition";

/// "content-id" as people write it.  Classic headers have always gone out in lower case.
std::string spelled(std::string_view key, MailDialect dialect) {
    std::string name(key);
    if (dialect == MailDialect::classic) return name;
    if (name == "mime-version") return "MIME-Version";
    if (name == "content-id") return "Content-ID";
    bool begins = true;
    for (char& c : name) {
        if (begins && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        begins = c == '-';
    }
    return name;
}

bool isKey(const std::optional<std::string>& name, std::string_view key) {
    return name && isKeyEqual(*name, key);
}

}  // namespace

std::shared_ptr<MimeBodyPart> MimeBodyPart::bodyPartFromAttributedString(const AttributedText& text,
                                                                         MailDialect dialect) {
    return bodyPartFromAttributedString(text, Files(), dialect);
}

std::shared_ptr<MimeBodyPart> MimeBodyPart::bodyPartFromAttributedString(const AttributedText& text,
                                                                         const Files& files,
                                                                         MailDialect dialect) {
    return dialect == MailDialect::classic ? ClassicComposer::partForText(text, files)
                                           : StandardComposer::partForText(text, files);
}

std::shared_ptr<MimeBodyPart> MimeBodyPart::bodyPartWithFileWrapper(const FileWrapper& file,
                                                                    std::optional<std::string_view> filename,
                                                                    MailDialect dialect) {
    const auto name =
        filename.value_or(file.preferredFilename().empty() ? file.filename() : file.preferredFilename());
    return dialect == MailDialect::classic ? ClassicComposer::partForFile(file, name)
                                           : StandardComposer::partForFile(file, name);
}

void MimeBodyPart::setBodyString(std::string_view text) {
    const auto encoding =
        _dialect == MailDialect::classic ? bestMIMEStringEncoding(text) : StringEncoding::utf8;
    setBodyEncoding(encoding);
    setBodyData(encode(text, encoding, Lossy::yes));
}

void MimeBodyPart::setMimeTypeFromFile(std::string_view path) {
    const auto extension = pathExtension(path);
    const auto isOwn = [&](std::string_view each) {
        return _dialect == MailDialect::classic ? each == extension : isCaseEqual(each, extension);
    };
    const auto& types = MimeBody::mimeTypeMap();
    const auto row = std::ranges::find_if(types, [&](const MimeFileType& each) {
        return each.subtype != "*" && std::ranges::any_of(each.extensions, isOwn);
    });
    if (row == types.end()) return setMimeType("application", "octet-stream");
    setMimeType(row->type, row->subtype);
}

void MimeBodyPart::setDisposition(ContentDisposition disposition, std::string_view filename) {
    _disposition = disposition;
    _dispositionParams.clear();
    if (!filename.empty()) _dispositionParams.emplace("filename", filename);
}

// What the headers say ---------------------------------------------------------------------------------------

void MimeBodyPart::chooseClassically() {
    if (isMultipart()) {
        _mimeEncoding = "7bit";
        if (!mimeParameterForKey("boundary")) setMimeParameter(MimeBody::makeMimeBoundary(), "boundary");
        return;
    }
    const bool hasCharset = mimeParameterForKey("charset").has_value();
    const bool chooses = !_mimeEncoding || _mimeEncoding->empty();
    const auto data = bodyData().value_or(Data());
    if (isText() && !hasCharset) {
        const bool isJapanese = bodyEncoding() == StringEncoding::iso2022JP;
        std::string charset;
        if (chooses && isAscii(data.view())) {
            charset = isJapanese && !isAscii(body()) ? "iso-2022-jp" : "us-ascii";
        } else if (!chooses && isKey(_mimeEncoding, "7bit") && !isJapanese) {
            charset = "us-ascii";
        } else if (!chooses && isKey(_mimeSubtype, "rtf")) {
            charset = "x-tarn";
        } else {
            charset = _charsetForEncoding(bodyEncoding());
        }
        setMimeParameter(charset, "charset");
        _choseCharset = true;
    }
    if (!chooses) return;
    const auto kind = isText()                      ? BodyKind::text
                      : isKey(_mimeType, "message") ? BodyKind::message
                                                    : BodyKind::other;
    _mimeEncoding =
        transferEncodingFor(data.view(), kind, static_cast<std::size_t>(MessageBody::lineLength()), _dialect);
    _choseEncoding = true;
}

/// An encoding that was given stays if it can hold the body: a part may come out of somebody's letter.
void MimeBodyPart::chooseByStandard() {
    if (isMultipart()) {
        bool has8bit = false;
        if (const auto* const parts = bodyParts()) {
            for (const auto& part : *parts) {
                part->chooseByStandard();
                has8bit = has8bit || isKey(part->_mimeEncoding, "8bit");
            }
        } else if (const auto data = bodyData()) {
            has8bit = !isAscii(data->view());
        }
        _mimeEncoding = has8bit ? "8bit" : "7bit";  // RFC 2045, section 6.4
        if (!mimeParameterForKey("boundary")) setMimeParameter(composedBoundary(), "boundary");
        return;
    }
    if (isText() && !mimeParameterForKey("charset") && _bodyEncoding == StringEncoding::utf8) {
        setMimeParameter("utf-8", "charset");
        _choseCharset = true;
    }
    if (isKey(_mimeEncoding, "base64") || isKey(_mimeEncoding, "quoted-printable")) return;
    const auto data = bodyData().value_or(Data());
    if (isKey(_mimeEncoding, "7bit") && canGoAs7bit(data.view())) return;
    if (isKey(_mimeEncoding, "8bit") && canGoAs8bit(data.view())) return;
    const auto kind = isText()                      ? BodyKind::text
                      : isKey(_mimeType, "message") ? BodyKind::message
                                                    : BodyKind::other;
    bodyData();
    _encodedData.reset();
    _mimeEncoding = transferEncodingFor(data.view(), kind, 0, _dialect);
    _choseEncoding = true;
}

/// The parameters of a classic type stand in the order of their names.
std::string MimeBodyPart::contentTypeValue() const {
    auto value = *_mimeType + "/" + *_mimeSubtype;
    for (const auto& [key, parameter] : _mimeParams) {
        value += _dialect == MailDialect::classic
                     ? "; " + quotedMimeString(key) + "=" + quotedMimeString(parameter)
                     : "; " + mimeParameter(key, parameter, _dialect);
    }
    return value;
}

std::string MimeBodyPart::dispositionValue() const {
    std::string value(_disposition == ContentDisposition::inlined ? "inline" : "attachment");
    for (const auto& [key, parameter] : _dispositionParams)
        value += "; " + mimeParameter(key, parameter, _dialect);
    return value;
}

void MimeBodyPart::addMimeHeadersWithMimeVersion(bool withMimeVersion) {
    const bool isClassic = _dialect == MailDialect::classic;
    isClassic ? chooseClassically() : chooseByStandard();
    setMimeHeader(*_mimeEncoding, kTransferEncoding);
    if (_mimeType && _mimeSubtype) {
        setMimeHeader(contentTypeValue(), "content-type");
    } else {
        _mimeHeaders.erase("content-type");
    }
    if (!isClassic && _disposition != ContentDisposition::none) setMimeHeader(dispositionValue(), kDisposition);
    if (withMimeVersion) setMimeHeader(isClassic ? MimeBody::versionString() : "1.0", "mime-version");
}

// Writing ----------------------------------------------------------------------------------------------------

void MimeBodyPart::appendHeadersToMessageHeaders(MessageHeaders& headers, bool withMimeVersion) {
    addMimeHeadersWithMimeVersion(withMimeVersion);
    const bool isClassic = _dialect == MailDialect::classic;
    const auto present = headers.allHeaders();  // which a change needs
    if (!isClassic) {
        // What the message was before it got this body.
        for (const auto& [key, values] : *present)
            if (key.starts_with("content-") && !_mimeHeaders.contains(key) && values.size() < 2)
                headers.removeObjectForKey(key);
    }
    for (const auto& [key, value] : _mimeHeaders) {
        const bool isEncodedHere = isClassic && !isAscii(value);
        headers.setObject(isEncodedHere ? encodeMimeHeaderValue(value, _dialect) : value,
                          spelled(key, _dialect));
    }
}

void MimeBodyPart::appendHeadersToData(ByteBuffer& data, bool withMimeVersion) {
    addMimeHeadersWithMimeVersion(withMimeVersion);
    HeaderDictionary headers;
    HeaderOrder order;
    OriginalKeys names;
    for (const auto& [key, value] : _mimeHeaders) {
        const bool isEncodedHere = _dialect == MailDialect::classic && !isAscii(value);
        headers[key] = {isEncodedHere ? encodeMimeHeaderValue(value, _dialect) : value};
        order.push_back(key);
        names[key] = spelled(key, _dialect);
    }
    data.append(encodeHeaderBlock(headers, order, names, EnvelopeLine::leaveOut, _dialect));
}

void MimeBodyPart::appendBodyToData(ByteBuffer& data) {
    if (!_mimeEncoding || _mimeEncoding->empty() || isMultipart()) addMimeHeadersWithMimeVersion(false);
    appendBodyToData(data, std::string(*_mimeEncoding));
}

void MimeBodyPart::appendBodyToData(ByteBuffer& data, std::string_view usingMimeEncoding) {
    if (isMultipart()) {
        if (!mimeParameterForKey("boundary")) addMimeHeadersWithMimeVersion(false);
        return appendChildren(data, *mimeParameterForKey("boundary"));
    }
    const auto body = bodyData().value_or(Data());
    const std::string encoding(usingMimeEncoding);
    if (isKeyEqual(encoding, "quoted-printable")) return data.append(encodeQuotedPrintable(body));
    if (isKeyEqual(encoding, "base64")) return data.append(encodeBase64(body));
    // Plain text in 8 bits is left out of classic letters.  Nobody gets there who leaves the choice to the
    // writer; those who asked for such an encoding have always got an empty part, and count on it.
    const bool isLeftOut = _dialect == MailDialect::classic && isKeyEqual(encoding, "8bit") && isText() &&
                           isKey(_mimeSubtype, "plain");
    if (isLeftOut) return;
    if (!isIdentityEncoding(encoding)) log("Unknown \"%@\" encoding requested--writing 8bit instead", encoding);
    data.append(body);
}

/// A line end in front of a boundary belongs to the boundary, so that a body without one at its end comes back
/// as it was.
void MimeBodyPart::appendChildren(ByteBuffer& data, std::string_view boundary) {
    const auto* const parts = bodyParts();
    const bool isClassic = _dialect == MailDialect::classic;
    if (parts == nullptr && !isClassic) return data.append(bodyData().value_or(Data()));
    bool isFirst = true;
    for (const auto& part : parts != nullptr ? *parts : Parts()) {
        // The classic one opens with a line end as well, right behind the header block.
        if (isClassic || !isFirst) data.append('\n');
        isFirst = false;
        data.append("--");
        data.append(boundary);
        data.append('\n');
        part->appendToData(data, false);
    }
    if (isClassic || !isFirst) data.append('\n');
    data.append("--");
    data.append(boundary);
    data.append("--\n");
}

void MimeBodyPart::appendToData(ByteBuffer& data, bool withMimeVersion) {
    appendHeadersToData(data, withMimeVersion);
    appendBodyToData(data, std::string(*_mimeEncoding));
}

}  // namespace lorvale
